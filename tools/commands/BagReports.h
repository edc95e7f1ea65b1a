#pragma once

#include <string>
#include <vector>

#include "Session.h"
#include "record/BagCheck.h"
#include "record/Contents.h"

namespace tool {

// What is in a recording, for people or programs.
void ReportContents(const Session& session, const std::string& path, const BagFindings& findings);

// The same in short of each sensor of a file of several.
void ReportSensors(const Session& session, const std::string& path,
                   const std::vector<BagFindings>& sensors);

// What of a recording is whole and what is not, likewise; of one sensor, or of each in a file of
// several.
void ReportCheck(const Session& session, const std::string& path,
                 const std::vector<BagFindings>& findings);

}  // namespace tool
