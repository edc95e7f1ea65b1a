// Mappings of the FPGA's registers that a program keeps.

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/mman.h>

#include <array>
#include <cstdint>
#include <thread>
#include <vector>

#include "BoardFixture.h"

namespace {

namespace fpga = VeltranoSDK::fpga;

using board_test::BoardTest;
using board_test::Descriptor;
using board_test::Transcript;

constexpr std::size_t kPage = 4096;
constexpr std::size_t kRange = 0x10000;  // from one block to the next

constexpr std::size_t kSpacing = fpga::kReg.TRI_SPACING.Index();
constexpr std::size_t kFilter = fpga::kReg.IMG_FILTER_WIDTH.Index();
constexpr std::size_t kNoRegister = 0x400 / 4;

class RegisterWindow : public BoardTest {
 protected:
  void SetUp() override {
    BoardTest::SetUp();
    memory_ = Descriptor("/dev/mem", O_RDWR);
    words_ = Map(kPage);
    ASSERT_NE(words_, MAP_FAILED);
  }
  void TearDown() override {
    ::munmap(const_cast<std::uint32_t*>(words_), kPage);
    BoardTest::TearDown();
  }

  volatile std::uint32_t* Map(std::size_t length, int protection = PROT_READ | PROT_WRITE) const {
    const auto base = fpga::BaseAddress(fpga::Block::kImage1, fpga::kZynqRegions);
    return static_cast<volatile std::uint32_t*>(
        ::mmap(nullptr, length, protection, MAP_SHARED, memory_.Get(), base));
  }
  static std::uint32_t Get(const fpga::Register& reg) {
    return tessaline_board_register_get(static_cast<unsigned>(reg.block), reg.offset);
  }
  template <typename Part>
  volatile Part& PartOf(std::size_t word, std::size_t index) const {
    return reinterpret_cast<volatile Part*>(words_ + word)[index];
  }

  Descriptor memory_;
  volatile std::uint32_t* words_ = nullptr;
};

TEST_F(RegisterWindow, ShowsLiveValuesAtEachRead) {
  SetRegister(fpga::kReg.TRI_SPACING, 1);
  EXPECT_EQ(words_[kSpacing], 1u);
  SetRegister(fpga::kReg.TRI_SPACING, 2);
  EXPECT_EQ(words_[kSpacing], 2u);
  const std::uint32_t ticks = words_[fpga::kReg.TIMER_COUNTER_L.Index()];
  Pass(1000);
  EXPECT_GE(words_[fpga::kReg.TIMER_COUNTER_L.Index()] - ticks, 50'000'000u);
}

TEST_F(RegisterWindow, EachWriteHasItsEffectAtOnce) {
  words_[kSpacing] = 7;
  EXPECT_EQ(Get(fpga::kReg.TRI_SPACING), 7u);
  words_[kSpacing] = 8;
  words_[kSpacing] = 8;
  words_[kFilter] = 9;
  EXPECT_EQ(Get(fpga::kReg.TRI_SPACING), 8u);
  EXPECT_EQ(Transcript(),
            "fpga write IMAGE_BLOCK_1 TRI_SPACING = 0x00000007\n"
            "fpga write IMAGE_BLOCK_1 TRI_SPACING = 0x00000008\n"
            "fpga write IMAGE_BLOCK_1 TRI_SPACING = 0x00000008\n"
            "fpga write IMAGE_BLOCK_1 IMG_FILTER_WIDTH = 0x00000009\n");
}

TEST_F(RegisterWindow, OnlyTheFirstReadStandsInTheTranscript) {
  for (int i = 0; i < 3; ++i) EXPECT_EQ(words_[kSpacing], 0u);
  words_[kFilter] = 1;
  EXPECT_EQ(words_[kFilter], 1u);
  EXPECT_EQ(Transcript(),
            "fpga read IMAGE_BLOCK_1 TRI_SPACING = 0x00000000\n"
            "fpga write IMAGE_BLOCK_1 IMG_FILTER_WIDTH = 0x00000001\n");
}

TEST_F(RegisterWindow, PartsOfAWordLeaveTheRestAlone) {
  words_[kSpacing] = 0x11223344;
  PartOf<std::uint8_t>(kSpacing, 1) = 0xAA;
  EXPECT_EQ(words_[kSpacing], 0x1122AA44u);
  PartOf<std::uint16_t>(kSpacing, 1) = 0x5566;
  EXPECT_EQ(words_[kSpacing], 0x5566AA44u);
  EXPECT_EQ(PartOf<std::uint8_t>(kSpacing, 3), 0x55);
  EXPECT_EQ(PartOf<std::uint16_t>(kSpacing, 0), 0xAA44);
  EXPECT_EQ(PartOf<std::int8_t>(kSpacing, 1), -86);
  EXPECT_EQ(PartOf<std::int16_t>(kSpacing, 0), -21948);
}

TEST_F(RegisterWindow, AWideAccessIsTwoRegisters) {
  constexpr std::size_t kPair = 0x70 / 4;
  PartOf<std::uint64_t>(kPair, 0) = 0x0102030405060708;
  EXPECT_EQ(words_[kPair], 0x05060708u);
  EXPECT_EQ(words_[kPair + 1], 0x01020304u);
  EXPECT_EQ(PartOf<std::uint64_t>(kPair, 0), 0x0102030405060708u);
}

#if defined(__x86_64__)

TEST_F(RegisterWindow, ServesInstructionsThatDoMoreThanMove) {
  words_[kSpacing] = 0x0F;
  asm volatile("orl $0xF0, %0" : "+m"(words_[kSpacing]));
  EXPECT_EQ(Get(fpga::kReg.TRI_SPACING), 0xFFu);
  std::uint32_t old = 3;
  asm volatile("xchgl %1, %0" : "+m"(words_[kSpacing]), "+r"(old));
  EXPECT_EQ(old, 0xFFu);
  EXPECT_EQ(Get(fpga::kReg.TRI_SPACING), 3u);
  bool equal = false;
  asm volatile("cmpl $3, %1" : "=@ccz"(equal) : "m"(words_[kSpacing]));
  EXPECT_TRUE(equal);
  SetRegister(fpga::kReg.TRI_SPACING, 4);
  EXPECT_EQ(words_[kSpacing], 4u) << "the page must be closed again";
}

// The write may start something although the value stays.
TEST_F(RegisterWindow, AChangeToTheSameValueIsAWrite) {
  words_[kSpacing] = 1;
  tessaline_board_transcript_clear();
  asm volatile("orl $1, %0" : "+m"(words_[kSpacing]));
  EXPECT_EQ(Transcript(), "fpga write IMAGE_BLOCK_1 TRI_SPACING = 0x00000001\n");
}

TEST_F(RegisterWindow, CopiesFromOneWindowToAnother) {
  volatile std::uint32_t* const other = Map(kPage);
  words_[kSpacing] = 0x12345678;
  const volatile void* from = words_ + kSpacing;
  volatile void* to = other + kFilter;
  std::size_t count = 4;
  asm volatile("rep movsb" : "+S"(from), "+D"(to), "+c"(count) : : "memory");
  EXPECT_EQ(Get(fpga::kReg.IMG_FILTER_WIDTH), 0x12345678u);
  ::munmap(const_cast<std::uint32_t*>(other), kPage);
}

TEST_F(RegisterWindow, NeedsNoSignalThatTheProgramBlocks) {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  sigdelset(&all, SIGSEGV);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  words_[kSpacing] = 1;
  asm volatile("addl $1, %0" : "+m"(words_[kSpacing]));
  sigset_t after;
  pthread_sigmask(SIG_SETMASK, &before, &after);
  EXPECT_EQ(Get(fpga::kReg.TRI_SPACING), 2u);
  EXPECT_EQ(sigismember(&after, SIGTRAP), 1);
}

#endif

#if defined(__aarch64__)

TEST_F(RegisterWindow, ServesPairsAndMovingBases) {
  constexpr std::size_t kPair = 0x70 / 4;
  const auto start = reinterpret_cast<std::uintptr_t>(words_ + kPair);
  std::uintptr_t base = start;
  asm volatile("stp %w1, %w2, [%0], #8" : "+r"(base) : "r"(1), "r"(2) : "memory");
  EXPECT_EQ(base, start + 8);
  std::uint64_t low = 0;
  std::uint64_t high = 0;
  asm volatile("ldp %w0, %w1, [%2, #-8]!" : "=&r"(low), "=&r"(high), "+r"(base));
  EXPECT_EQ(base, start);
  EXPECT_EQ(low, 1u);
  EXPECT_EQ(high, 2u);
  std::int64_t extended = 0;
  words_[kPair] = 0xFFFFFFFE;
  asm volatile("ldrsw %0, [%1]" : "=r"(extended) : "r"(start));
  EXPECT_EQ(extended, -2);
}

TEST_F(RegisterWindow, ServesVectors) {
  constexpr std::size_t kFour = 0x70 / 4;
  alignas(16) const std::array<std::uint32_t, 4> values{1, 2, 3, 4};
  alignas(16) std::array<std::uint32_t, 4> seen{};
  asm volatile("ldr q0, [%0]\n str q0, [%1]\n ldr q1, [%1]\n str q1, [%2]"
               :
               : "r"(values.data()), "r"(words_ + kFour), "r"(seen.data())
               : "v0", "v1", "memory");
  EXPECT_EQ(seen, values);
}

#endif

TEST_F(RegisterWindow, IsSharedByThreads) {
  constexpr std::uint32_t kRounds = 2000;
  std::vector<std::thread> threads;
  for (std::size_t t = 0; t < 4; ++t) {
    threads.emplace_back([this, t] {
      volatile std::uint32_t& mine = words_[0x70 / 4 + t];
      for (std::uint32_t i = 1; i <= kRounds; ++i) {
        mine = i;
        ASSERT_EQ(mine, i);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST_F(RegisterWindow, ALongOneReachesTheNextBlock) {
  volatile std::uint32_t* const words = Map(3 * kRange);
  words[2 * kRange / 4 + fpga::kReg.TRI_DELAY.Index()] = 5;
  EXPECT_EQ(Get(fpga::kReg.TRI_DELAY), 5u);
  EXPECT_EQ(words[kNoRegister], 0u);
  words[kNoRegister] = 1;
  EXPECT_EQ(words[kNoRegister], 0u);
  ::munmap(const_cast<std::uint32_t*>(words), 3 * kRange);
}

TEST_F(RegisterWindow, KeepsItsProtection) {
  volatile std::uint32_t* const readable = Map(kPage, PROT_READ);
  EXPECT_EQ(readable[kSpacing], 0u);
  EXPECT_DEATH(readable[kSpacing] = 1, "");
  EXPECT_EQ(::mprotect(const_cast<std::uint32_t*>(readable), kPage, PROT_READ | PROT_WRITE), 0);
  readable[kSpacing] = 6;
  EXPECT_EQ(Get(fpga::kReg.TRI_SPACING), 6u);
  EXPECT_EQ(::mprotect(const_cast<std::uint32_t*>(readable), kPage, PROT_NONE), 0);
  EXPECT_DEATH((void)readable[kSpacing], "");
  ::munmap(const_cast<std::uint32_t*>(readable), kPage);
}

TEST_F(RegisterWindow, CannotGrowOrMove) {
  void* const start = const_cast<std::uint32_t*>(words_);
  EXPECT_EQ(::mremap(start, kPage, 2 * kPage, MREMAP_MAYMOVE), MAP_FAILED);
  EXPECT_EQ(errno, EFAULT);
  EXPECT_EQ(::mremap(start, kPage, kPage, MREMAP_MAYMOVE), start);
}

TEST_F(RegisterWindow, WhatIsUnmappedIsOrdinaryMemoryAgain) {
  void* const start = const_cast<std::uint32_t*>(Map(kPage));
  ASSERT_EQ(::munmap(start, kPage), 0);
  void* const again = ::mmap(start, kPage, PROT_READ | PROT_WRITE,
                             MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
  ASSERT_EQ(again, start);
  tessaline_board_transcript_clear();
  *static_cast<volatile std::uint32_t*>(again) = 1;
  EXPECT_EQ(Transcript(), "");
  ::munmap(again, kPage);
}

TEST_F(RegisterWindow, OfABoardThatIsGoneReadsAsOnes) {
  tessaline_board_unplug();
  EXPECT_EQ(words_[kSpacing], 0xFFFFFFFFu);
  words_[kSpacing] = 1;
}

// Crash reporters give their threads small stacks for signals.
TEST_F(RegisterWindow, NeedsNoMoreThanASmallSignalStack) {
  constexpr std::byte kUntouched{0xA5};
  std::vector<std::byte> stack(64 << 10, kUntouched);
  const stack_t small{stack.data(), 0, stack.size()};
  stack_t before{};
  ASSERT_EQ(sigaltstack(&small, &before), 0);
  words_[kSpacing] = words_[kSpacing] + 1;
  words_[fpga::kReg.TRIGGER_CTRL.Index()] = 0xFFFFFFFF;
  ASSERT_EQ(sigaltstack(&before, nullptr), 0);
  std::size_t used = stack.size();
  for (const std::byte& byte : stack) {
    if (byte != kUntouched) break;
    --used;
  }
  EXPECT_GT(used, 0u);
  EXPECT_LT(used, 12u << 10);
  RecordProperty("bytes", static_cast<int>(used));
}

}  // namespace
