// Waiting for the board's descriptors, alone and together with others.
#include <gmock/gmock.h>
#include <pthread.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/select.h>
#include <sys/wait.h>

#include <atomic>
#include <vector>

#include "PollFixture.h"
#include "VideoClient.h"

namespace board_test {
namespace {

TEST_F(Poll, EndsWithTheDevicesInterrupt) {
  EXPECT_LT(Delay(Both(), Interrupt, [this] { TakeInterrupt(); }), kAtOnce);
}

TEST_F(Poll, EndsWithAnOrdinaryDescriptor) {
  eventfd_t ignored = 0;
  EXPECT_LT(Delay(
                Both(), [this] { WakeOther(); }, [&] { eventfd_read(other_, &ignored); }),
            kAtOnce);
}

TEST_F(Poll, SleepsInTheKernelMeanwhile) {
  auto set = Both();
  const long before = Sleeps();
  EXPECT_EQ(poll(set.data(), set.size(), 500), 0);
  EXPECT_LE(Sleeps() - before, 25);
  EXPECT_EQ(set[0].revents, 0);
  EXPECT_EQ(set[1].revents, 0);
}

TEST_F(Poll, TellsAllThatIsReady) {
  auto set = Both();
  Interrupt();
  EXPECT_EQ(poll(set.data(), set.size(), kForever), 1);
  EXPECT_EQ(set[0].revents, POLLIN);
  EXPECT_EQ(set[1].revents, 0);
  WakeOther();
  EXPECT_EQ(poll(set.data(), set.size(), kForever), 2);
  EXPECT_EQ(set[0].revents, POLLIN);
  EXPECT_EQ(set[1].revents, POLLIN);
  TakeInterrupt();
  EXPECT_EQ(poll(set.data(), set.size(), kForever), 1);
  EXPECT_EQ(set[0].revents, 0);
  EXPECT_EQ(set[1].revents, POLLIN);
}

TEST_F(Poll, IsNotEndedByWhatNobodyAskedFor) {
  Interrupt();
  pollfd set{device_.Get(), POLLPRI, 0};
  const long before = Sleeps();
  EXPECT_EQ(poll(&set, 1, 200), 0);
  EXPECT_LE(Sleeps() - before, 12);
}

TEST_F(Poll, ManyDescriptorsAreNoMatter) {
  constexpr int kMany = 600;
  std::vector<pollfd> set(kMany, pollfd{-1, POLLIN, 0});
  set[kMany / 2] = {device_.Get(), POLLIN, 0};
  set[kMany - 1] = {other_, POLLIN, 0};
  Interrupt();
  WakeOther();
  EXPECT_EQ(poll(set.data(), set.size(), kForever), 2);
  EXPECT_EQ(set[kMany / 2].revents, POLLIN);
  EXPECT_EQ(set[kMany - 1].revents, POLLIN);
}

TEST_F(Poll, AnEventWakesEverybody) {
  std::atomic<int> woken{0};
  std::vector<std::thread> waiting;
  const Descriptor second("/dev/uio1", O_RDWR);
  for (int i = 0; i < 4; ++i) {
    waiting.emplace_back([&, fd = i % 2 == 0 ? device_.Get() : second.Get()] {
      pollfd set{fd, POLLIN, 0};
      if (poll(&set, 1, kForever) == 1) ++woken;
    });
  }
  ReallyWait(milliseconds(20));
  EXPECT_EQ(woken, 0);
  Interrupt();
  for (std::thread& thread : waiting) thread.join();
  EXPECT_EQ(woken, 4);
}

TEST_F(Poll, OneWhoComesTooLateWaitsOn) {
  // Two threads wait and one takes the interrupt. The other's poll may end, but then it finds
  // nothing.
  std::atomic<int> taken{0};
  std::atomic<long> sleeps{0};
  const auto take = [&] {
    const Descriptor own("/dev/uio1", O_RDWR | O_NONBLOCK);
    pollfd set{own.Get(), POLLIN, 0};
    const long before = Sleeps();
    for (int i = 0; i < 3; ++i) {
      if (poll(&set, 1, 100) != 1) continue;
      std::uint32_t count = 0;
      taken += read(own.Get(), &count, sizeof count) == 4 ? 1 : 0;
    }
    sleeps += Sleeps() - before;
  };
  std::thread first(take);
  std::thread second(take);
  ReallyWait(milliseconds(20));
  Interrupt();
  first.join();
  second.join();
  EXPECT_EQ(taken, 2) << "each once: every descriptor sees the interrupt";
  EXPECT_LE(sleeps, 60);
}

TEST_F(Poll, UnpluggingEndsIt) {
  std::thread waiting([this] {
    pollfd set{device_.Get(), POLLIN, 0};
    EXPECT_EQ(poll(&set, 1, kForever), 1);
    EXPECT_EQ(set.revents, POLLERR | POLLHUP);
  });
  ReallyWait(milliseconds(10));
  tessaline_board_unplug();
  waiting.join();
  pollfd set{device_.Get(), 0, 0};
  EXPECT_EQ(poll(&set, 1, kForever), 1);
  EXPECT_EQ(set.revents, POLLERR | POLLHUP);
}

TEST_F(Poll, TheEndOfTheStreamEndsIt) {
  VideoClient client("/dev/video1");
  client.Start(1024, 640, 2);
  std::thread waiting([&client] {
    pollfd set{client.fd(), POLLIN, 0};
    EXPECT_EQ(poll(&set, 1, kForever), 1);
    EXPECT_EQ(set.revents, POLLERR);
  });
  ReallyWait(milliseconds(10));
  EXPECT_EQ(client.StreamOff(), 0);
  waiting.join();
  pollfd for_nothing{client.fd(), 0, 0};
  EXPECT_EQ(poll(&for_nothing, 1, 0), 0);
}

// --- Signals and cancellation --------------------------------------------------------------

std::atomic<int> handled{0};
std::atomic<int> polled_in_handler{0};
int handlers_descriptor = -1;

void OnSignal(int) { ++handled; }

void OnSignalPoll(int) {
  pollfd set{handlers_descriptor, POLLIN, 0};
  if (poll(&set, 1, kForever) == 1 && set.revents == POLLIN) ++polled_in_handler;
  ++handled;
}

void Handle(int signal, void (*handler)(int), int flags) {
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_flags = flags;
  ASSERT_EQ(sigaction(signal, &action, nullptr), 0);
  handled = 0;
}

// Interrupts a thread that polls, more than once, because the poll may not have started yet.
template <typename Polls>
void WhileItPolls(Polls polls) {
  std::atomic<bool> ended{false};
  std::thread waiting([&] {
    polls();
    ended = true;
  });
  while (!ended) {
    ReallyWait(milliseconds(10));
    pthread_kill(waiting.native_handle(), SIGUSR1);
  }
  waiting.join();
}

TEST_F(Poll, AHandledSignalEndsItWithEintr) {
  for (const int flags : {0, SA_RESTART}) {
    Handle(SIGUSR1, OnSignal, flags);
    WhileItPolls([this] {
      auto set = Both();
      errno = 0;
      EXPECT_EQ(poll(set.data(), set.size(), kForever), -1);
      EXPECT_EQ(errno, EINTR);
      EXPECT_GE(handled, 1);
    });
  }
}

TEST_F(Poll, AHandledSignalEndsBlockedCallsUnlessTheyRestart) {
  VideoClient client("/dev/video1");
  client.Start(1024, 640, 2);
  const auto read_interrupt = [this] {
    std::uint32_t count = 0;
    return read(device_.Get(), &count, sizeof count) == sizeof count;
  };
  const auto dequeue = [&client] { return !client.Dequeue().empty(); };
  Handle(SIGUSR1, OnSignal, 0);
  WhileItPolls([&] {
    EXPECT_FALSE(read_interrupt());
    EXPECT_EQ(errno, EINTR);
  });
  WhileItPolls([&] {
    EXPECT_FALSE(dequeue());
    EXPECT_EQ(errno, EINTR);
  });
  Handle(SIGUSR1, OnSignal, SA_RESTART);
  WhileItPolls([&] {
    std::thread event([] {
      ReallyWait(milliseconds(60));
      Interrupt();
    });
    EXPECT_TRUE(read_interrupt());
    EXPECT_GE(handled, 1);
    event.join();
  });
}

TEST_F(Poll, ASignalThatWasHeldBackEndsPpollWithEintr) {
  Handle(SIGUSR1, OnSignal, 0);
  sigset_t held;
  sigset_t before;
  sigemptyset(&held);
  sigaddset(&held, SIGUSR1);
  pthread_sigmask(SIG_BLOCK, &held, &before);
  raise(SIGUSR1);
  auto set = Both();
  const timespec limit{kForever / 1000, 0};
  EXPECT_EQ(ppoll(set.data(), set.size(), &limit, &before), -1);
  EXPECT_EQ(errno, EINTR);
  EXPECT_EQ(handled, 1);
  sigset_t now;
  pthread_sigmask(SIG_SETMASK, &before, &now);
  EXPECT_EQ(sigismember(&now, SIGUSR1), 1) << "the mask is as it was";
}

TEST_F(Poll, PpollWaitsForTheDevice) {
  auto set = Both();
  const timespec limit{0, 20'000'000};
  EXPECT_EQ(ppoll(set.data(), set.size(), &limit, nullptr), 0);
  Interrupt();
  EXPECT_EQ(ppoll(set.data(), set.size(), nullptr, nullptr), 1);
  EXPECT_EQ(set[0].revents, POLLIN);
}

TEST_F(Poll, AHandlerMayPollToo) {
  const Descriptor second("/dev/uio0", O_RDWR);
  tessaline_board_external_trigger(1);
  handlers_descriptor = second.Get();
  polled_in_handler = 0;
  Handle(SIGUSR1, OnSignalPoll, 0);
  WhileItPolls([this] {
    auto set = Both();
    EXPECT_EQ(poll(set.data(), set.size(), kForever), -1);
  });
  EXPECT_GE(polled_in_handler, 1);
}

TEST_F(Poll, IsACancellationPoint) {
  auto set = Both();
  pthread_t thread{};
  ASSERT_EQ(pthread_create(
                &thread, nullptr,
                [](void* descriptors) -> void* {
                  poll(static_cast<pollfd*>(descriptors), 2, kForever);
                  return nullptr;
                },
                set.data()),
            0);
  ReallyWait(milliseconds(20));
  ASSERT_EQ(pthread_cancel(thread), 0);
  void* result = nullptr;
  ASSERT_EQ(pthread_join(thread, &result), 0);
  EXPECT_EQ(result, PTHREAD_CANCELED);
  Interrupt();
  EXPECT_EQ(poll(set.data(), set.size(), kForever), 1) << "nothing was left locked behind it";
}

// --- Faults ----------------------------------------------------------------------------------

TEST_F(Poll, APlantedFaultIsItsResult) {
  tessaline_board_fault("uio1", "poll", 1, 1, EIO);
  auto set = Both();
  EXPECT_EQ(poll(set.data(), set.size(), 1), 0);
  errno = 0;
  EXPECT_EQ(poll(set.data(), set.size(), 1), -1);
  EXPECT_EQ(errno, EIO);
}

TEST_F(Poll, IsOneCallHoweverLongItWaits) {
  tessaline_board_fault("*", "poll", 0, 0, TESSALINE_BOARD_CALLED);
  pollfd set{device_.Get(), POLLPRI,
             0};  // there is no sign for this event, so the board polls repeatedly
  EXPECT_EQ(poll(&set, 1, 100), 0);
  EXPECT_EQ(Transcript(), "uio1 poll called\n");
}

// --- Its relatives ---------------------------------------------------------------------------

TEST_F(Poll, SelectWaitsForTheDevice) {
  timeval limit{0, 20'000};
  fd_set set;
  FD_ZERO(&set);
  FD_SET(device_.Get(), &set);
  EXPECT_EQ(select(device_.Get() + 1, &set, nullptr, nullptr, &limit), 0);
  for (int round = 0; round < 2; ++round) {
    std::thread event([] {
      ReallyWait(milliseconds(10));
      Interrupt();
    });
    FD_SET(device_.Get(), &set);
    EXPECT_EQ(select(device_.Get() + 1, &set, nullptr, nullptr, nullptr), 1);
    EXPECT_TRUE(FD_ISSET(device_.Get(), &set));
    event.join();
    TakeInterrupt();
  }
  limit = {0, 20'000};
  EXPECT_EQ(select(device_.Get() + 1, &set, nullptr, nullptr, &limit), 0);
}

TEST_F(Poll, EpollWaitsForTheDevice) {
  const int set = epoll_create1(EPOLL_CLOEXEC);
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.fd = device_.Get();
  ASSERT_EQ(epoll_ctl(set, EPOLL_CTL_ADD, device_.Get(), &event), 0);
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(epoll_wait(set, &event, 1, 20), 0);
    Interrupt();
    EXPECT_EQ(epoll_wait(set, &event, 1, kForever), 1);
    EXPECT_EQ(event.data.fd, device_.Get());
    TakeInterrupt();
  }
  close(set);
}

// --- Fork --------------------------------------------------------------------------------------

TEST_F(Poll, AChildDoesNotDisturbTheParentsWait) {
  auto set = Both();
  EXPECT_EQ(poll(set.data(), set.size(), 1), 0);
  const pid_t child = fork();
  if (child == 0) {
    std::thread event([] {
      ReallyWait(milliseconds(10));
      Interrupt();  // in the child's board
    });
    auto own = Both();
    const bool ready = poll(own.data(), own.size(), kForever) == 1 && own[0].revents == POLLIN;
    event.join();
    device_.Close();
    _exit(ready ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  const long before = Work();
  EXPECT_EQ(poll(set.data(), set.size(), 300), 0);
  EXPECT_LT(Work() - before, 50) << "it goes on waking up";
  EXPECT_LT(Delay(Both(), Interrupt, [this] { TakeInterrupt(); }), kAtOnce);
}

}  // namespace
}  // namespace board_test
