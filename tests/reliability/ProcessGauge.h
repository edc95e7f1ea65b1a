#pragma once

#include <string>
#include <vector>

namespace tessaline_test {

// What this process takes of the machine, looked at now and then.
class ProcessGauge {
 public:
  // The values at this moment are those to compare with.
  void Start();
  void Sample();

  // Checks that there were never more threads than at the start, no more descriptors at the end
  // and at most `most_descriptors_more` in between, and that the memory never grew by more than
  // `most_kib_more`. One line for each that fails.
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
