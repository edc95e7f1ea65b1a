#include "Devices/peripheral/TemperatureSensor18b20.h"

int ReadTemperatureSensor18b20() { return 0; }
