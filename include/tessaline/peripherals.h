/**
 * @file
 * Laser, status light and temperatures.
 *
 * Return values, behaviour before start-up and the meaning of "Threads" are
 * explained in tessaline.h.
 */
#ifndef TESSALINE_PERIPHERALS_H
#define TESSALINE_PERIPHERALS_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/* --- Laser ------------------------------------------------------------------------------ */

/**
 * Switches the laser on: drives both enable lines and, if that succeeded, pauses 50 ms
 * until the light is steady. The laser stays on until CloseLaser(), even after the
 * process has ended.
 *
 * @return 0; -1 when a line cannot be driven (reported on standard output), and
 *         before start-up.
 *
 * Device: two GPIO lines (sysfs). Threads: one. See also SetLaserPower().
 */
int OpenLaser(void);

/**
 * Switches the laser off.
 *
 * @return 0; -1 when a line cannot be driven (reported on standard output), and
 *         before start-up.
 *
 * Device: two GPIO lines (sysfs). Threads: one.
 */
int CloseLaser(void);

/**
 * Sets the optical power of the laser.
 *
 * @param percent  0 to 100, of the potentiometer's travel; rounded down to one of its
 *                 GetDigitalPOTResolution() steps
 * @return 0; -1 when the potentiometer does not answer, and before start-up.
 *
 * Device: potentiometer on I2C, AD5175 (0x2F) or TPL0401B (0x3E, series 24 and 25).
 * Threads: one.
 */
int SetLaserPower(float percent);

/**
 * @return number of steps of the potentiometer, 1024 or 128; all ones before start-up.
 *         Threads: any.
 */
unsigned int GetDigitalPOTResolution(void);

/**
 * Selects how the FPGA drives the laser's trigger.
 *
 * @param mode  bit 0 counts; 0 after start-up
 * @return 0, or -1 before start-up.
 *
 * Register: IMAGE_BLOCK_0 LASER_CTRL bit 1; bits 2-31 are cleared. Threads: any.
 */
int SetLaserMode(unsigned int mode);

/* --- Status light ----------------------------------------------------------------------- */

/**
 * Sets the colour of the status light.
 *
 * @param colour  sum of 1 red, 2 green, 4 blue; 0 is dark
 * @return 0; -1 when a line cannot be driven (reported on standard output; the colours
 *         after it keep their state), and before start-up.
 *
 * Device: three GPIO lines (sysfs). Threads: one.
 *
 * @code
 *   LedControl(1 + 4);  // magenta
 * @endcode
 */
int LedControl(unsigned int colour);

/* --- Temperatures ----------------------------------------------------------------------- */

/**
 * @return the processor's temperature in degrees Celsius; below -270 when the board has
 *         no temperature device (an ERROR in the log); not a number (NaN) before start-up.
 *
 * Device: the system monitor's IIO file. Threads: any.
 */
float GetCpuTemp(void);

/** @return 0: no board carries this sensor. Threads: any, also before start-up. */
int64_t Temp18b20Read(void);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
