#pragma once

// The board temperature sensor that no board carries so far: always 0.
int ReadTemperatureSensor18b20();
