#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "record/BagSource.h"
#include "record/Contents.h"
#include "record/Standard.h"

namespace tool {

struct BagFolderResult {
  Contents contents;  // of the new bag
  std::vector<std::string> files;
  std::uint64_t damaged = 0;  // messages and places that could not be copied
};

// Writes a recording as a rosbag2 folder: its messages, standard messages made of its frames, and
// metadata.yaml. Throws Failure if `folder` exists or cannot be written; nothing is left of it
// then. The same when `stop`, which is asked often, says so.
BagFolderResult ExportBagFolder(const BagSource& recording, const std::string& folder,
                                StandardMessages standard, const std::function<bool()>& stop);

// The text of metadata.yaml of a bag with one file of this name.
std::string BagMetadata(const Contents& contents, const std::string& file);

}  // namespace tool
