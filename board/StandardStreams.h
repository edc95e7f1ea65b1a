#pragma once

namespace board {

// Call outside of the board when one of the descriptors 0 to 2 has become a file of the board;
// other descriptors are ignored. From then on the C library's stream of that number reads and
// writes whatever the descriptor stands for.
void CarryStandardStream(int fd);

}  // namespace board
