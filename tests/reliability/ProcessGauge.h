#pragma once

#include <string>
#include <vector>

namespace tessaline_test {

// Samples the process's use of memory, descriptors and threads.
class ProcessGauge {
 public:
  // Takes the current values as the base of the comparison.
  void Start();
  void Sample();

  // Expects never more threads than at the start, no more descriptors at the end and at most
  // `most_descriptors_more` in between, and a growth in memory of at most `most_kib_more`. Returns
  // one text for each violation.
  std::vector<std::string> Complaints(long most_kib_more, long most_descriptors_more) const;
  void Print() const;

 private:
  struct Quantity {
    const char* name;
    long start = 0;
    long most = 0;
    long now = 0;

    void Note(long value);
  };

  void Read();

  Quantity resident_{"resident KiB"};
  Quantity descriptors_{"descriptors"};
  Quantity threads_{"threads"};
  long samples_ = 0;
};

}  // namespace tessaline_test
