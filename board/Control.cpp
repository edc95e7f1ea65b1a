// The C control interface, and the set-up from the environment.

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>

#include "Board.h"
#include "Caller.h"
#include "Clock.h"
#include "FaultPlan.h"
#include "Faults.h"
#include "FileTable.h"
#include "InheritedFiles.h"
#include "RealCalls.h"
#include "StandardStreams.h"
#include "Transcript.h"
#include "TranscriptFile.h"
#include "model/LaserLine.h"
#include "model/Scene.h"
#include "model/Speckle.h"
#include "model/View.h"
#include "tessaline/board.h"

namespace {

using board::Board;
namespace fpga = VeltranoSDK::fpga;

// No function called through this object waits, so no thread ends there and no signal handler runs.
// All code that allocates must use it (see Heap.cpp).
struct Inside {
  Inside() { board::EnterBoard(false); }
  ~Inside() { board::LeaveBoard(); }
  Inside(const Inside&) = delete;
  Inside& operator=(const Inside&) = delete;
};

// Returns the current board's answer, or `otherwise` if there is no board.
template <typename Result, typename Ask>
Result AskBoard(Result otherwise, Ask ask) {
  const Inside inside;
  const std::shared_ptr<Board> board = Board::Current();
  return board == nullptr ? otherwise : static_cast<Result>(ask(*board));
}

template <typename Tell>
void TellBoard(Tell tell) {
  const Inside inside;
  if (const std::shared_ptr<Board> board = Board::Current(); board != nullptr) tell(*board);
}

bool IsRegister(unsigned block, uint32_t offset) {
  return block < fpga::kBlockCount && offset % 4 == 0 && offset / 4 < board::kRegistersPerBlock;
}

bool IsSensor(unsigned width, unsigned height) {
  constexpr unsigned kLeast = 16;
  constexpr unsigned kMost = 32768;
  return width >= kLeast && width <= kMost && height >= kLeast && height <= kMost;
}

int Give(board::PlanePoint point, double* x, double* z) {
  if (!std::isfinite(point.x) || !std::isfinite(point.z)) return -1;
  *x = point.x;
  *z = point.z;
  return 0;
}

const char* Environment(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr && *value != '\0' ? value : nullptr;
}

// Returns what is wrong with the text, or an empty text.
std::string SetOptics(Board& board, std::string_view text) {
  std::optional<std::uint64_t> seed;
  const std::string wrong = board::ReadOptics(text, seed);
  if (!wrong.empty()) return wrong;
  std::optional<board::Head> head;
  if (seed) {
    const board::SensorState sensor = board.sensor()->State();
    head.emplace(*seed, sensor.full_width, sensor.full_height);
  }
  board.engine().SetHead(head);
  return {};
}

// Likewise.
std::string SetScene(Board& board, std::string_view text) {
  std::optional<board::Target> target;
  const std::string wrong = board::ReadScene(text, target);
  if (wrong.empty()) board.engine().SetTarget(std::move(target));
  return wrong;
}

// Likewise.
std::string Play(Board& board, const char* text) {
  auto replay = board::Replay::Open(text);
  if (replay == nullptr) return "the recording's rings are gone; \"tessaline replay\" makes them";
  board.Play(std::move(replay));
  return {};
}

// A test without the faults, optics or scene that it asked for would be misleading, so an invalid
// value ends the process.
void EndIf(const char* variable, const std::string& wrong) {
  if (wrong.empty()) return;
  std::fprintf(stderr, "%s: %s\n", variable, wrong.c_str());
  constexpr int kUsage = 2;
  _exit(kUsage);
}

// "@FILE" stands for the file's content.
std::string PlantFaults(std::string text) {
  if (text.front() == '@') {
    std::ifstream file(text.substr(1));
    if (!file) return "cannot read " + text.substr(1);
    text.assign(std::istreambuf_iterator<char>(file), {});
  }
  return board::PlantFaults(text);
}

// The memory that this process shares with others, or its own.
std::unique_ptr<board::BoardMemory> MemoryFromEnvironment(const char* model) {
  constexpr const char* kShared = "TESSALINE_BOARD_SHARED";
  std::unique_ptr<board::BoardMemory> memory;
  if (const char* file = Environment(kShared)) {
    memory = board::BoardMemory::Join(file, model);
    if (memory == nullptr && errno != 0) {
      EndIf(kShared, errno == ENOENT   ? "the run whose board this program would share has ended"
                     : errno == EACCES ? "the board that programs share is another user's"
                                       : fmt::format("{}: {}", file, strerror(errno)));
    }
    if (memory == nullptr) {
      std::fprintf(stderr,
                   "tessaline-board: the board that the programs share is another model; this "
                   "program has a %s of its own\n",
                   model);
    }
  }
  if (memory == nullptr) memory = board::BoardMemory::Own();
  if (const char* folder = Environment("TESSALINE_BOARD_STATE")) memory->SetFolder(folder);
  return memory;
}

__attribute__((constructor)) void SetUpFromEnvironment() {
  const char* model = Environment("TESSALINE_BOARD");
  if (model == nullptr) return;
  const Inside inside;
  auto memory = MemoryFromEnvironment(model);
  const board::BoardMemory& chips = *memory;
  if (!Board::PlugIn(model, std::move(memory))) {
    std::fprintf(stderr, "TESSALINE_BOARD: there is no board for model \"%s\"\n", model);
    return;
  }
  EndIf("tessaline-board", chips.Wrong());
  if (const char* factor = Environment("TESSALINE_BOARD_SLEEP")) {
    tessaline_board_set_sleep_factor(std::strtod(factor, nullptr));
  }
  if (const char* pace = Environment("TESSALINE_BOARD_PACE")) {
    tessaline_board_set_pace(std::strcmp(pace, "free") == 0 ? TESSALINE_BOARD_FREE_RUN
                                                            : TESSALINE_BOARD_REAL_TIME);
  }
  if (const char* strips = Environment("TESSALINE_BOARD_STRIPS")) {
    tessaline_board_set_strips_per_buffer(static_cast<unsigned>(std::strtoul(strips, nullptr, 10)));
  }
  const auto set = [](const char* variable, auto setter) {
    if (const char* text = Environment(variable)) EndIf(variable, setter(text));
  };
  const std::shared_ptr<Board> board = Board::Current();
  set("TESSALINE_BOARD_OPTICS", [&](const char* text) { return SetOptics(*board, text); });
  set("TESSALINE_BOARD_SCENE", [&](const char* text) { return SetScene(*board, text); });
  set("TESSALINE_BOARD_FAULTS", PlantFaults);
  set("TESSALINE_BOARD_REPLAY", [&](const char* text) { return Play(*board, text); });
  board::OpenInheritedFiles(*board);
  for (int fd = 0; fd <= STDERR_FILENO; ++fd) {
    if (board::IsBoardDescriptor(fd)) board::CarryStandardStream(fd);
  }
  // Without a file, the transcript would not be read.
  if (!board::StartTranscriptFile()) tessaline_board_transcript_enable(0);
}

__attribute__((destructor)) void WriteTranscript() {
  const Inside inside;
  board::WriteTranscriptFile();
}

}  // namespace

extern "C" {

int tessaline_board_select(const char* model) {
  const Inside inside;
  return model != nullptr && Board::PlugIn(model) ? 0 : -1;
}

void tessaline_board_unplug(void) {
  const Inside inside;
  Board::Unplug();
}

void tessaline_board_set_sleep_factor(double factor) { board::SetSleepFactor(factor); }

void tessaline_board_set_pace(enum tessaline_board_pace pace) {
  TellBoard([=](Board& board) { board.engine().SetPace(pace); });
}

void tessaline_board_set_strips_per_buffer(unsigned strips) {
  TellBoard([=](Board& board) { board.engine().SetStripsPerBuffer(strips); });
}

int tessaline_board_set_optics(const char* optics) {
  return AskBoard(-1, [=](Board& board) {
    return optics != nullptr && SetOptics(board, optics).empty() ? 0 : -1;
  });
}

int tessaline_board_set_scene(const char* scene) {
  return AskBoard(-1, [=](Board& board) {
    return scene != nullptr && SetScene(board, scene).empty() ? 0 : -1;
  });
}

int tessaline_board_replay(const char* rings) {
  return AskBoard(
      -1, [=](Board& board) { return rings != nullptr && Play(board, rings).empty() ? 0 : -1; });
}

char* tessaline_board_transcript(enum tessaline_board_format format) {
  const Inside inside;
  return strdup(board::TranscriptText(format).c_str());
}

int tessaline_board_transcript_save(const char* path) {
  if (path == nullptr) {
    errno = EFAULT;
    return -1;
  }
  const Inside inside;
  const bool json = std::string_view(path).ends_with(".json");
  const std::string text =
      board::TranscriptText(json ? TESSALINE_BOARD_JSON_LINES : TESSALINE_BOARD_TEXT);
  const int file =
      board::real::Open(AT_FDCWD, path, O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0666);
  if (file < 0) return -1;
  std::string_view rest = text;
  while (!rest.empty()) {
    const ssize_t written = board::real::Write(file, rest.data(), rest.size());
    if (written <= 0) break;
    rest.remove_prefix(static_cast<std::size_t>(written));
  }
  board::real::Close(file);
  if (!rest.empty()) return -1;
  board::TranscriptWasSaved(path);
  return 0;
}

void tessaline_board_transcript_clear(void) {
  const Inside inside;
  board::ClearTranscript();
}

void tessaline_board_transcript_enable(int enable) { board::EnableTranscript(enable != 0); }

uint32_t tessaline_board_register_get(unsigned block, uint32_t offset) {
  if (!IsRegister(block, offset)) return 0xFFFFFFFFu;
  return AskBoard(0xFFFFFFFFu, [=](Board& board) {
    return board.fpga().Value(static_cast<fpga::Block>(block), offset);
  });
}

void tessaline_board_register_set(unsigned block, uint32_t offset, uint32_t value) {
  if (!IsRegister(block, offset)) return;
  TellBoard([=](Board& board) {
    board.fpga().Set({static_cast<fpga::Block>(block), offset, {}}, value);
    board.engine().Wake();
  });
}

void tessaline_board_fault(const char* device, const char* operation, unsigned skip, unsigned count,
                           int error) {
  if (device == nullptr || operation == nullptr) return;
  const Inside inside;
  board::PlantFault(device, operation, skip, count, error);
}

void tessaline_board_frame_fault(int stream, enum tessaline_board_frame_fault kind, unsigned skip,
                                 unsigned count) {
  const Inside inside;
  board::PlantFrameFault(stream, kind, skip, count);
}

int tessaline_board_set_poll(const char* device, int implemented) {
  if (device == nullptr) return -1;
  return AskBoard(-1, [=](Board& board) {
    board::Device* found = board.Named(device);
    if (found == nullptr) return -1;
    found->SetPoll(implemented != 0);
    return 0;
  });
}

void tessaline_board_clear_faults(void) {
  const Inside inside;
  board::ClearFaults();
}

int tessaline_board_open_files(const char* device) {
  if (device == nullptr) return -1;
  return AskBoard(-1, [=](Board& board) { return board.OpenFiles(device); });
}

int tessaline_board_chip_get(const char* chip, unsigned address) {
  if (chip == nullptr) return -1;
  return AskBoard(-1, [=](Board& board) {
    const board::ChipAccess* found = board.chip(chip);
    return found == nullptr ? -1 : found->Peek(address);
  });
}

int tessaline_board_chip_set(const char* chip, unsigned address, unsigned value) {
  if (chip == nullptr) return -1;
  return AskBoard(-1, [=](Board& board) {
    board::ChipAccess* found = board.chip(chip);
    return found != nullptr && found->Poke(address, value) ? 0 : -1;
  });
}

int tessaline_board_chip_present(const char* chip, int present) {
  if (chip == nullptr) return -1;
  return AskBoard(-1, [=](Board& board) {
    board::ChipAccess* found = board.chip(chip);
    if (found == nullptr) return -1;
    found->SetPresent(present != 0);
    return 0;
  });
}

int tessaline_board_gpio_level(unsigned line) {
  return AskBoard(-1, [=](Board& board) { return board.gpio().Level(line); });
}

void tessaline_board_set_temperature_raw(unsigned raw) {
  TellBoard([=](Board& board) { board.temperature().SetRaw(raw); });
}

double tessaline_board_watchdog_left(void) {
  return AskBoard(board::Watchdog::kNotArmed, [](Board& board) { return board.watchdog().Left(); });
}

void tessaline_board_external_trigger(int level) {
  TellBoard([=](Board& board) { board.DriveExternalTrigger(level != 0); });
}

void tessaline_board_da_arrived(void) {
  TellBoard([](Board& board) { board.ReportDaArrived(); });
}

unsigned tessaline_board_interrupts(unsigned index) {
  if (index > 1) return 0;
  return AskBoard(0u, [=](Board& board) { return board.uio(index).Raised(); });
}

void tessaline_board_stream_stats(int stream, struct tessaline_board_stream_stats* out) {
  if (out == nullptr) return;
  *out = {};
  TellBoard([=](Board& board) { *out = board.engine().Stats(stream); });
}

void tessaline_board_keep_checksums(int enable) {
  TellBoard([=](Board& board) { board.engine().Checksums().Keep(enable != 0); });
}

int tessaline_board_frame_checksum(uint64_t frame_id, uint64_t* checksum) {
  if (checksum == nullptr) return -1;
  return AskBoard(-1, [=](Board& board) {
    const auto found = board.engine().Checksums().Find(frame_id);
    if (found) *checksum = *found;
    return found ? 0 : -1;
  });
}

uint64_t tessaline_board_checksum(const void* data, size_t bytes) {
  if (data == nullptr) return 0;
  return board::Checksum({static_cast<const std::uint8_t*>(data), bytes});
}

double tessaline_board_scene_height(double x_mm, double y_mm) {
  return board::scene::Height(x_mm, y_mm);
}

double tessaline_board_scene_row(double height_mm) {
  return AskBoard(-1.0, [=](Board& board) {
    return board.sensor() == nullptr
               ? -1.0
               : board::scene::Row(height_mm, board.sensor()->State().full_height);
  });
}

double tessaline_board_scene_x(double column) {
  return AskBoard(0.0, [=](Board& board) {
    return board.sensor() == nullptr ? 0.0
                                     : board::scene::X(column, board.sensor()->State().full_width);
  });
}

double tessaline_board_scene_counts_per_mm(void) { return board::scene::kCountsPerMm; }

int tessaline_board_point_to_mm(double column, double row, double* x_mm, double* z_mm) {
  if (x_mm == nullptr || z_mm == nullptr) return -1;
  return AskBoard(-1, [=](Board& board) {
    if (board.sensor() == nullptr) return -1;
    const board::SensorState sensor = board.sensor()->State();
    const auto view = board.engine().GetView();
    return Give(view->head ? view->head->ToMillimetres(column, row)
                           : board::PlanePoint{board::scene::X(column, sensor.full_width),
                                               board::scene::Z(row, sensor.full_height)},
                x_mm, z_mm);
  });
}

int tessaline_board_head_to_mm(uint64_t seed, unsigned sensor_width, unsigned sensor_height,
                               double column, double row, double* x_mm, double* z_mm) {
  const bool receives = x_mm != nullptr && z_mm != nullptr;
  if (!receives || !IsSensor(sensor_width, sensor_height)) return -1;
  const board::Head head(seed, sensor_width, sensor_height);
  return Give(head.ToMillimetres(column, row), x_mm, z_mm);
}

int tessaline_board_head_line(uint64_t seed, unsigned sensor_width, unsigned sensor_height,
                              const char* scene, uint64_t frame_id, double noise, float* rows,
                              unsigned columns) {
  const Inside inside;
  std::optional<board::Target> target;
  if (!IsSensor(sensor_width, sensor_height) || !(noise >= 0) || !std::isfinite(noise) ||
      scene == nullptr || rows == nullptr || !board::ReadScene(scene, target).empty()) {
    return -1;
  }
  const board::Head head(seed, sensor_width, sensor_height);
  const board::LaserLine line(head, target ? target->CrossSection() : board::scene::CrossSection(0),
                              false);
  for (unsigned column = 0; column < columns; ++column) {
    rows[column] = std::numeric_limits<float>::quiet_NaN();
    if (column >= sensor_width) continue;
    const auto place = line.At(column);
    if (!place) continue;
    double row = place->row;
    if (noise > 0) {
      const board::Speckle speckle = board::SpeckleAt(seed, frame_id, column);
      if (speckle.lost) continue;
      row += noise * board::kSpeckleRow * speckle.row;
    }
    if (row >= 0 && row <= sensor_height - 1.0) rows[column] = static_cast<float>(row);
  }
  return 0;
}

}  // extern "C"
