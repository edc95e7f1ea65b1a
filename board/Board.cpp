#include "Board.h"

#include <pthread.h>

#include <array>
#include <atomic>
#include <cmath>
#include <mutex>

#include "Caller.h"
#include "Clock.h"
#include "Faults.h"
#include "FileTable.h"
#include "ProgramSignals.h"
#include "Transcript.h"
#include "chips/Ad5175.h"
#include "chips/DaConverter.h"
#include "chips/E2vFlash4k.h"
#include "chips/Eeprom.h"
#include "chips/Gmax2509.h"
#include "chips/Gsprint6502.h"
#include "chips/Imx252.h"
#include "chips/Imx273.h"
#include "chips/Tpl0401.h"
#include "devices/FpgaWindow.h"
#include "devices/I2cBus.h"
#include "devices/Memory.h"
#include "devices/SpiBus.h"
#include "devices/SystemTree.h"
#include "devices/UDmaBuf.h"

// Exported by the C library; its headers do not declare it.
extern "C" int __register_atfork(void (*prepare)(), void (*parent)(), void (*child)(), void* dso);

namespace board {
namespace {

namespace fpga = VeltranoSDK::fpga;
namespace products = VeltranoSDK::products;

std::atomic<bool> plugged_in{false};

struct Slot {
  std::mutex mutex;
  std::shared_ptr<Board> board;
};

// Never destroyed: threads may be inside a device call until the process ends.
Slot& TheSlot() {
  static Slot* slot = new Slot;
  return *slot;
}

// The values that the virtual product's FPGA and thermometer report.
constexpr unsigned kFpgaVersion = 0x0100;

// About 40 degrees. Not computed from the table that the library reads: a test compares the two.
unsigned RawTemperature(const products::Processor& processor) {
  constexpr unsigned kZynq = 2545;
  constexpr unsigned kZynqMp = 41200;
  return processor.regions.image == VeltranoSDK::fpga::kZynqRegions.image ? kZynq : kZynqMp;
}

// Where the kernel has the value's file. The library may know it by a link.
std::string ThermometerFile(const products::Thermometer& thermometer) {
  constexpr std::string_view kLinks = "/sys/bus/iio/devices/";
  const std::string_view file = thermometer.file;
  if (!file.starts_with(kLinks)) return std::string(file);
  return "/sys/devices/platform/amba/ffa50000.ams/" + std::string(file.substr(kLinks.size()));
}

// Numbers of devices that the kernel gives out as they come.
constexpr unsigned kVideoMajor = 81;
constexpr unsigned kI2cMajor = 89;
constexpr unsigned kSpiMajor = 153;
constexpr unsigned kMiscMajor = 10;
constexpr unsigned kWatchdogMinor = 130;
constexpr unsigned kFirstDynamicMajor = 240;

// The parts of the board whose attributes change.
struct Live {
  std::array<const Uio*, 2> uio;
  const Watchdog* watchdog;
};

// The kernel's unit is a thousandth of a degree: (raw + offset) x scale.
void DescribeThermometer(SystemTree& tree, const products::Thermometer& thermometer) {
  const std::string file = ThermometerFile(thermometer);
  const std::string channel = file.substr(0, file.rfind("_raw"));
  const std::string folder = file.substr(0, file.rfind('/'));
  const std::string prefix = channel.substr(folder.size() + 1);
  const double scale = thermometer.gain * 1000 / thermometer.steps;
  const double offset = thermometer.offset * thermometer.steps / thermometer.gain;
  tree.Add({.bus = "iio",
            .name = "iio:device0",
            .folder = folder,
            .uevent = "DEVTYPE=iio_device",
            .attributes = {{"name", "tessaline-monitor"},
                           {prefix + "_scale", fmt::format("{:.9f}", scale)},
                           {prefix + "_offset", fmt::format("{:.0f}", std::trunc(offset))}}});
}

void DescribeWatchdog(SystemTree& tree, const Watchdog& watchdog) {
  const std::string folder = tree.Add({"watchdog0",
                                       kFirstDynamicMajor + 1,
                                       0,
                                       "watchdog",
                                       {{"identity", Watchdog::Identity()},
                                        {"nowayout", "0"},
                                        {"bootstatus", "0"},
                                        {"min_timeout", std::to_string(Watchdog::kMinTimeout)},
                                        {"max_timeout", std::to_string(Watchdog::kMaxTimeout)}}});
  tree.Add(folder + "/status",
           [&watchdog] { return fmt::format("0x{:x}", watchdog.TakeStatus()); });
  tree.Add(folder + "/timeout", [&watchdog] { return std::to_string(watchdog.Timeout()); });
  tree.Add(folder + "/state",
           [&watchdog] { return watchdog.Left() == Watchdog::kNotArmed ? "inactive" : "active"; });
}

void DescribeBuses(SystemTree& tree, const products::Board& wiring, bool has_spi) {
  for (unsigned i = 0; i < 2; ++i) {
    const std::string node = fmt::format("i2c-{}", i);
    const SystemTree::Attribute name{"name", fmt::format("tessaline I2C adapter {}", i)};
    const std::string adapter =
        tree.Add({.bus = "i2c", .name = node, .folder = {}, .uevent = {}, .attributes = {name}});
    tree.Add({node, kI2cMajor, i, "i2c-dev", {name}, adapter});
  }
  if (!has_spi) return;
  const unsigned controller = wiring.sensor_bus.number;
  const std::string chip = tree.Add({.bus = "spi",
                                     .name = fmt::format("spi{}.0", controller),
                                     .folder = {},
                                     .uevent = "MODALIAS=spi:tessaline-sensor",
                                     .attributes = {{"modalias", "spi:tessaline-sensor"}}});
  tree.Add({fmt::format("spidev{}.0", controller), kSpiMajor, 0, "spidev", {}, chip});
}

void Describe(SystemTree& tree, const products::Board& wiring, bool has_spi, const Live& live) {
  tree.Add({"mem", 1, 1, "mem", {}});
  for (unsigned i = 0; i < 2; ++i) {
    tree.Add({fmt::format("video{}", i),
              kVideoMajor,
              i,
              "video4linux",
              {{"name", fmt::format("tessaline-video{}", i)}, {"index", "0"}}});
    const std::string uio =
        tree.Add({fmt::format("uio{}", i),
                  kFirstDynamicMajor,
                  i,
                  "uio",
                  {{"name", i == 0 ? "trigger" : "da"}, {"version", "devicetree"}}});
    tree.Add(uio + "/event", [uio = live.uio[i]] { return std::to_string(uio->Delivered()); });
  }
  DescribeBuses(tree, wiring, has_spi);
  tree.Add({"watchdog", kMiscMajor, kWatchdogMinor, "misc", {}});
  DescribeWatchdog(tree, *live.watchdog);
  tree.Add({"udmabuf0", kFirstDynamicMajor + 2, 0, "u-dma-buf", {}});
  DescribeThermometer(tree, wiring.processor.thermometer);
}

// During a fork no thread is inside the board, and the slot and the frame engine are locked, so the
// child finds them idle.
void BeforeFork() {
  KeepEverybodyOut();
  TheSlot().mutex.lock();
  if (const auto& board = TheSlot().board) board->engine().LockForFork();
}

void AfterFork(bool child) {
  if (const auto& board = TheSlot().board) {
    board->engine().UnlockAfterFork(child);
    if (child) board->memory().Renew();
  }
  TheSlot().mutex.unlock();
  if (child) {
    RenewAfterFork();
    OwnSignalsAfterFork();
    CloseFpgaWindowsAfterFork();
  }
  LetEverybodyIn(child);
}

void HandleForks() {
  static std::once_flag once;
  std::call_once(once, [] {
    // As pthread_atfork, but exit() on another thread does not remove the handlers in the middle
    // of a fork, which would leave the board closed and the signals blocked.
    __register_atfork(
        BeforeFork, [] { AfterFork(false); }, [] { AfterFork(true); }, nullptr);
  });
}

void Replace(std::shared_ptr<Board> board) {
  std::shared_ptr<Board> before;
  {
    const std::lock_guard lock(TheSlot().mutex);
    before = std::move(TheSlot().board);
    TheSlot().board = std::move(board);
    plugged_in = TheSlot().board != nullptr;
  }
}

}  // namespace

bool Board::PluggedIn() { return plugged_in; }

std::shared_ptr<Board> Board::Current() {
  const std::lock_guard lock(TheSlot().mutex);
  return TheSlot().board;
}

bool Board::PlugIn(const std::string& model, std::unique_ptr<BoardMemory> memory) {
  const products::Product* const product = products::FindProduct(model);
  if (product == nullptr) return false;
  HandleForks();
  OwnDescriptors();
  Unplug();
  RestartClock();
  ClearFaults();
  ClearTranscript();
  EnableTranscript(true);
  const std::shared_ptr<Board> board(new Board(*product, std::move(memory)));
  if (board->memory_->IsShared()) {
    // Threads wait for what other processes do as long as this one runs.
    static const auto* const kept = new std::shared_ptr<Board>(board);
    static_cast<void>(kept);
  }
  Replace(board);
  return true;
}

void Board::Unplug() {
  const std::shared_ptr<Board> board = Current();
  if (board == nullptr) return;
  Replace(nullptr);
  // Open files keep the object alive, but no thread may continue to wait in it.
  for (const auto& device : board->devices_) device->Unplug();
}

template <typename Kind, typename... Args>
Kind* Board::Add(Args&&... args) {
  auto device = std::make_unique<Kind>(std::forward<Args>(args)...);
  Kind* plain = device.get();
  devices_.push_back(std::move(device));
  return plain;
}

Board::Board(const products::Product& product, std::unique_ptr<BoardMemory> memory)
    : memory_(std::move(memory)),
      family_(product.family),
      fpga_(std::make_shared<FpgaModel>(
          *memory_, family_.series << fpga::kField.fpga_series.shift | kFpgaVersion)) {
  if (memory_->IsShared()) ShareClock(memory_->Place<ClockState>());
  const products::Board& wiring = family_.board;
  const auto lines = wiring.gpio.All();
  Add<Memory>(*memory_, fpga_, wiring.processor.regions);
  for (unsigned i = 0; i < 2; ++i) {
    video_[i] = Add<VideoNode>(*memory_, i);
    uio_[i] = Add<Uio>(*memory_, i);
  }
  I2cBus* i2c[] = {Add<I2cBus>(*memory_, 0u), Add<I2cBus>(*memory_, 1u)};
  gpio_ = Add<Gpio>(*memory_, std::vector<unsigned>(lines.begin(), lines.end()));
  temperature_ =
      Add<IioTemperature>(*memory_, std::vector{ThermometerFile(wiring.processor.thermometer)},
                          RawTemperature(wiring.processor));
  watchdog_ = Add<Watchdog>(*memory_);
  Add<UDmaBuf>(*memory_);

  const auto attach = [&](unsigned bus, const char* name, std::shared_ptr<I2cChip> chip) {
    i2c[bus]->Attach(chip);
    chips_.emplace_back(name, std::move(chip));
  };
  const auto fit_i2c_sensor = [&](auto sensor) {
    sensor_ = sensor;
    attach(wiring.sensor_bus.number, "sensor", sensor);
  };
  const auto fit_spi_sensor = [&](auto sensor) {
    sensor_ = sensor;
    Add<SpiBus>(*memory_, wiring.sensor_bus.number, 0u, sensor);
    chips_.emplace_back("sensor", sensor);
  };
  const auto carries = [&](const products::ImageSensor& kind) { return &family_.sensor == &kind; };
  if (carries(products::kImx273)) fit_i2c_sensor(std::make_shared<Imx273>(*memory_));
  if (carries(products::kImx252)) fit_i2c_sensor(std::make_shared<Imx252>(*memory_));
  if (carries(products::kGmax2509)) {
    fit_spi_sensor(std::make_shared<Gmax2509>(*memory_, product.Height()));
  }
  if (carries(products::kGsprint6502)) fit_spi_sensor(std::make_shared<Gsprint6502>(*memory_));
  if (carries(products::kE2vFlash4k)) fit_spi_sensor(std::make_shared<E2vFlash4k>(*memory_));
  if (family_.laser_power_chip == products::kAd5175) {
    const auto pot = std::make_shared<Ad5175>(*memory_);
    laser_power_ = pot;
    attach(wiring.laser_bus.number, "pot", pot);
  } else {
    const auto pot = std::make_shared<Tpl0401>(*memory_);
    laser_power_ = pot;
    attach(wiring.laser_bus.number, "pot", pot);
  }
  attach(wiring.laser_bus.number, "da", std::make_shared<DaConverter>(*memory_));
  attach(0, "eeprom", std::make_shared<Eeprom>(*memory_));
  const bool has_spi = wiring.sensor_bus.path.find("spi") != std::string_view::npos;
  Describe(*Add<SystemTree>(), wiring, has_spi, {{uio_[0], uio_[1]}, watchdog_});

  engine_ = std::make_unique<FrameEngine>(
      *memory_, EngineWiring{fpga_, sensor_, [this] { return LaserPower(); }, &video_[0]->Buffers(),
                             &video_[1]->Buffers(), product.points});
  fpga_->signals.software_trigger = [this] { engine_->SoftwareTrigger(); };
  fpga_->signals.acquisition_stop = [this] { engine_->ForgetTriggers(); };
  fpga_->signals.frame_id_reset = [this] { engine_->ResetFrameId(); };
  fpga_->signals.settings_changed = [this] { engine_->Wake(); };
  fpga_->signals.sensor_reset = [this] {
    if (sensor_ != nullptr) sensor_->Reset();
  };
  memory_->Complete();
}

Board::~Board() {
  engine_.reset();  // before the devices that its thread uses
}

Device* Board::Find(const std::string& path) const {
  for (const auto& device : devices_) {
    if (device->Claims(path)) return device.get();
  }
  return nullptr;
}

FileTree Board::Files() const {
  FileTree tree;
  for (const auto& device : devices_) device->List(tree);
  return tree;
}

Device* Board::Named(const std::string& name) const {
  for (const auto& device : devices_) {
    if (device->Name() == name) return device.get();
  }
  return nullptr;
}

int Board::OpenFiles(const std::string& name) const {
  const auto* counted = dynamic_cast<const CountedDevice*>(Named(name));
  return counted == nullptr ? -1 : static_cast<int>(counted->OpenFiles());
}

ChipAccess* Board::chip(const std::string& name) {
  for (const auto& [known, chip] : chips_) {
    if (known == name) return chip.get();
  }
  return nullptr;
}

// The line source needs both of its enable lines.
double Board::LaserPower() const {
  const products::GpioLines& lines = family_.board.gpio;
  const bool on = gpio_->Level(lines.laser1) == 1 && gpio_->Level(lines.laser2) == 1;
  return on ? laser_power_->Power() : 0;
}

void Board::DriveExternalTrigger(bool level) {
  const bool before = fpga_->Get(fpga::kField.external_trigger_level) != 0;
  if (before == level) return;
  fpga_->Set(fpga::kReg.EXT_TRIGGER_LEVEL, level ? 1 : 0);
  if (level) {
    const std::uint32_t low = fpga_->Value(fpga::Block::kImage1, fpga::kReg.TIMER_COUNTER_L.offset);
    const std::uint32_t high =
        fpga_->Value(fpga::Block::kImage1, fpga::kReg.TIMER_COUNTER_H.offset);
    fpga_->Set(fpga::kReg.XTRIG_START_L, low);
    fpga_->Set(fpga::kReg.XTRIG_START_H, high);
    engine_->ExternalEdge();
  } else {
    engine_->Wake();  // the gate may have closed
  }
  if (fpga_->Get(fpga::kField.external_trigger_irq_enable) != 0) uio_[0]->Raise();
}

void Board::Play(std::unique_ptr<Replay> replay) {
  for (const ring::Record& record : replay->StartState()) DoAsRecorded(record);
  engine_->Play(std::move(replay), [this](const ring::Record& record) { DoAsRecorded(record); });
}

void Board::DoAsRecorded(const ring::Record& record) {
  switch (record.kind) {
    case ring::Kind::kRegister:
      return SetRegisterAsRecorded(record.first, static_cast<std::uint32_t>(record.second));
    case ring::Kind::kDevice:  // what the EEPROM holds
      for (std::size_t i = 0; i < record.payload.size(); ++i) {
        chip("eeprom")->Poke(static_cast<unsigned>(i),
                             std::to_integer<unsigned>(record.payload[i]));
      }
      return;
    case ring::Kind::kDaArrived:
      return ReportDaArrived();
    case ring::Kind::kTrigger: {
      const bool level = record.first != 0;
      const bool before = fpga_->Get(fpga::kField.external_trigger_level) != 0;
      if (level != before) return DriveExternalTrigger(level);
      // The level in between was too short to be seen.
      if (fpga_->Get(fpga::kField.external_trigger_irq_enable) != 0) uio_[0]->Raise();
      return;
    }
    default:
      return;
  }
}

// What software writes itself is not touched.
void Board::SetRegisterAsRecorded(std::uint64_t address, std::uint32_t value) {
  for (const fpga::Register& reg : fpga::kAllRegisters) {
    const std::uint32_t base = fpga::BaseAddress(reg.block, family_.board.processor.regions);
    if (address == base + reg.offset) fpga_->SetStatus(reg, value);
  }
}

void Board::ReportDaArrived() {
  if (fpga_->Get(fpga::kField.da_irq_enable) != 0) uio_[1]->Raise();
}

}  // namespace board
