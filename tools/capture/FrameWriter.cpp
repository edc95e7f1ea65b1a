#include "capture/FrameWriter.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>

#include "Failure.h"
#include "OutputFile.h"
#include "capture/CsvWriter.h"
#include "capture/HeightMapWriter.h"
#include "capture/ImageFilesWriter.h"
#include "capture/NpyWriter.h"
#include "capture/PlyWriter.h"
#include "capture/RawWriter.h"

namespace tool {
namespace {

struct FormatName {
  std::string_view name;  // and the ending of its files
  Format format;
  bool strips;
  bool images;
};

constexpr std::array kFormats{
    FormatName{"csv", Format::kCsv, true, false}, FormatName{"npy", Format::kNpy, true, true},
    FormatName{"ply", Format::kPly, true, false}, FormatName{"png", Format::kPng, true, true},
    FormatName{"pgm", Format::kPgm, false, true}, FormatName{"raw", Format::kRaw, true, true}};

std::string NamesFor(bool images) {
  std::string names;
  for (const FormatName& format : kFormats) {
    if (images ? format.images : format.strips) {
      names += fmt::format("{}{}", names.empty() ? "" : ", ", format.name);
    }
  }
  return names;
}

}  // namespace

Format FormatOf(const std::string& path, const std::string& asked, bool images) {
  std::string name = asked;
  if (name.empty()) {
    name = std::filesystem::path(path).extension().string();
    if (!name.empty()) name.erase(0, 1);
  }
  std::transform(name.begin(), name.end(), name.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  for (const FormatName& format : kFormats) {
    if (name == format.name && (images ? format.images : format.strips)) return format.format;
  }
  const bool stream = asked.empty() && IsStream(path);
  throw Failure(
      ExitCode::kUsage,
      stream
          ? fmt::format("{} does not tell the format of the {}", path, images ? "images" : "strips")
          : fmt::format("{} cannot be written as \"{}\"", images ? "images" : "strips", name),
      fmt::format("use one of these as the file's ending or with --format: {}", NamesFor(images)));
}

void RequireStreamable(Format format, const WriterSettings& settings, bool exact) {
  if (!IsStream(settings.path)) return;
  const auto refuse = [](const char* what, const char* next) {
    throw Failure(ExitCode::kUsage, what, next);
  };
  if (format == Format::kPly) {
    refuse("a point cloud begins with the number of its points, so it cannot be streamed",
           "write it to a file, or stream csv or raw");
  }
  if (format == Format::kNpy && !exact) {
    refuse("an array begins with the number of its frames, so that must be known to stream it",
           "give -n COUNT alone, or stream csv or raw");
  }
  if (format == Format::kPng && settings.images && settings.frames != 1) {
    refuse("a stream holds one PNG picture only", "give -n 1, or stream pgm");
  }
}

std::vector<std::string> FilesOf(Format format, const WriterSettings& settings) {
  std::vector<std::string> files{settings.path};
  if (IsStandardOutput(settings.path)) return files;
  if (format == Format::kRaw) files.push_back(RawWriter::IndexOf(settings.path));
  const bool pictures = settings.images && (format == Format::kPng || format == Format::kPgm);
  if (!pictures || settings.frames == 1) return files;
  constexpr std::uint64_t kLookedAt = 9999;
  files.clear();
  const std::uint64_t most = settings.frames == 0 ? kLookedAt : settings.frames;
  for (std::uint64_t i = 1; i <= std::min(most, kLookedAt); ++i) {
    files.push_back(ImageFilesWriter::PathOf(settings.path, i));
  }
  return files;
}

std::unique_ptr<FrameWriter> MakeWriter(Format format, const WriterSettings& settings) {
  switch (format) {
    case Format::kCsv:
      return std::make_unique<CsvWriter>(settings);
    case Format::kNpy:
      return std::make_unique<NpyWriter>(settings);
    case Format::kPly:
      return std::make_unique<PlyWriter>(settings);
    case Format::kPng:
      if (!settings.images) return std::make_unique<HeightMapWriter>(settings);
      [[fallthrough]];
    case Format::kPgm:
      return std::make_unique<ImageFilesWriter>(settings, format);
    case Format::kRaw:
      return std::make_unique<RawWriter>(settings);
  }
  return nullptr;
}

}  // namespace tool
