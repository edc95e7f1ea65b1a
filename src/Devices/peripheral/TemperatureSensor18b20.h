#pragma once

// The board's temperature sensor. No board has one so far, so this always returns 0.
int ReadTemperatureSensor18b20();
