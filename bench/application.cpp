// Compares an application of the shared library with the same work done without the library.

#include "Application.h"

#include <cstdio>

int main(int argc, char** argv) {
  const bench::Options options = bench::ReadOptions(argc, argv);
  if (options.growth) {
    bench::PrintDeliveryGrowth(options);
    return 0;
  }
  if (options.profile) {
    bench::PrintStartUpProfile(options);
    return 0;
  }
  bench::PrintRegisterRows(options);
  bench::PrintDeliveryRows(options);
  bench::PrintStartUpRows(options);
  bench::PrintSizeRow();
  return 0;
}
