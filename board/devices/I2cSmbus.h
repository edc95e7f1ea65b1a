// The SMBus commands of i2c-dev. The adapters only know plain I2C messages, so each command is made
// of these, as the kernel's I2C core does it.
#pragma once

#include <linux/i2c-dev.h>
#include <linux/i2c.h>

#include <functional>
#include <vector>

#include "devices/I2cTransfer.h"

namespace board {

// What the adapters can do. A block that a chip gives the length of is not among it.
inline constexpr unsigned long kI2cFunctions = I2C_FUNC_I2C | I2C_FUNC_SMBUS_EMUL;

// A client's settings.
struct SmbusClient {
  unsigned address;
  bool checked;  // a check byte ends each message
};

// Makes one command. `run` makes its messages on the wire and returns 0 or the negative errno.
// Returns 0 or the negative errno.
int RunSmbus(SmbusClient client, const i2c_smbus_ioctl_data* request,
             const std::function<int(std::vector<I2cTransfer>&)>& run);

}  // namespace board
