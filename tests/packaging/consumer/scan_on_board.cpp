// An application's test in C++ that links the virtual board.
#include <tessaline/board.h>
#include <tessaline/register_map.h>
#include <tessaline/signal_handler.h>
#include <tessaline/tessaline.h>

int main(int argc, char** argv) {
  if (argc < 2 || tessaline_board_select(argv[1]) != 0) return 2;
  tessaline_board_set_sleep_factor(0);
  GetLibVersion(argv[1]);
  if (RegisterHardwareInit() != 0) return 1;
  SetTriSpacing(1000);
  const auto& spacing = VeltranoSDK::fpga::kReg.TRI_SPACING;
  const VeltranoSDK::SignalHandler handler;
  return tessaline_board_register_get(static_cast<unsigned>(spacing.block), spacing.offset) == 50000
             ? 0
             : 1;
}
