#include "capture/CsvWriter.h"

namespace tool {

CsvWriter::CsvWriter(const WriterSettings& settings)
    : file_(settings.path, settings.force), text_(settings.measuring, settings.rows_only) {
  file_.Append(text_.Head());
  file_.Flush();
}

void CsvWriter::Write(const Frame& frame) {
  file_.Append(text_.Lines(frame));
  file_.EndRecord();
}

void CsvWriter::Finish() { file_.Flush(); }

}  // namespace tool
