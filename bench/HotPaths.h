#pragma once

#include "Table.h"

namespace bench {

void PrintReorderRows(const Options& options);
void PrintReorderGrowth(const Options& options);

void PrintStripPassRows(const Options& options);
void PrintStripPassGrowth(const Options& options);

void PrintProfileRows(const Options& options);
void PrintProfileGrowth(const Options& options);

void PrintWaitingRows(const Options& options);

}  // namespace bench
