#pragma once

#include "Table.h"

namespace bench {

void PrintDeliveryRows(const Options& options);
void PrintDeliveryGrowth(const Options& options);
void PrintRegisterRows(const Options& options);
void PrintStartUpRows(const Options& options);
void PrintStartUpProfile(const Options& options);
void PrintSizeRow();

}  // namespace bench
