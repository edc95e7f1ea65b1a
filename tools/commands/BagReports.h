#pragma once

#include <string>

#include "Session.h"
#include "record/BagCheck.h"
#include "record/Contents.h"

namespace tool {

// What is in a recording, for people or programs.
void ReportContents(const Session& session, const std::string& path, const BagFindings& findings);

// What of a recording is whole and what is not, likewise.
void ReportCheck(const Session& session, const std::string& path, const BagFindings& findings);

}  // namespace tool
