/**
 * @file
 * The two digital outputs and the DA output.
 *
 * Channel 0 is digital output 1, channel 1 is digital output 2. For any other number a
 * function prints "<function> invalid parameter!" (or a text of its own) on standard
 * output, touches no register, and returns -1 or all ones.
 *
 * Return values, behaviour before start-up and the meaning of "Threads" are
 * explained in tessaline.h.
 */
#ifndef TESSALINE_OUTPUTS_H
#define TESSALINE_OUTPUTS_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/* --- Pulse of a digital output ---------------------------------------------------------- */

/**
 * Sets the width of the pulse.
 *
 * @param channel  0 or 1
 * @param width    FPGA units; the low 21 bits count
 * @return 0; -1 for another channel ("SetOutWidth invalid parameter!"), and before start-up.
 *
 * Register: IMAGE_BLOCK_3 DO1_CTRL or DO2_CTRL bits 0-20. Threads: any.
 */
int SetOutWidth(unsigned int channel, unsigned int width);

/**
 * @param channel  0 or 1
 * @return the width; all ones for another channel ("GetOutWidth invalid parameter!"),
 *         and before start-up.
 *
 * Register: IMAGE_BLOCK_3 DO1_CTRL or DO2_CTRL bits 0-20. Threads: any.
 */
unsigned int GetOutWidth(unsigned int channel);

/**
 * Selects the event that fires the output.
 *
 * @param channel  0 or 1
 * @param event    0 to 3; the low two bits count
 * @return 0; -1 for another channel ("SetOutEvent invalid parameter!"), and before start-up.
 *
 * Register: IMAGE_BLOCK_3 DO1_CTRL or DO2_CTRL bits 21-22. Threads: any.
 */
int SetOutEvent(unsigned int channel, unsigned int event);

/**
 * The event cannot be read back.
 *
 * @param channel  0 or 1
 * @return 0, whatever was set; all ones for another channel ("GetOutEvent invalid
 *         parameter!"), and before start-up.
 *
 * Register: IMAGE_BLOCK_3 DO1_CTRL or DO2_CTRL, read and ignored. Threads: any.
 */
unsigned int GetOutEvent(unsigned int channel);

/**
 * Sets the output's mode.
 *
 * @param channel  0 or 1
 * @param mode     0 or 1; bit 0 counts
 * @return 0; -1 for another channel ("SetOutMode invalid parameter!"), and before start-up.
 *
 * Register: IMAGE_BLOCK_3 DO1_CTRL or DO2_CTRL bit 23. Threads: any.
 */
int SetOutMode(unsigned int channel, unsigned int mode);

/**
 * The mode cannot be read back.
 *
 * @param channel  0 or 1
 * @return 0, whatever was set; all ones for another channel ("GetOutMode invalid
 *         parameter!"), and before start-up.
 *
 * Register: IMAGE_BLOCK_3 DO1_CTRL or DO2_CTRL, read and ignored. Threads: any.
 */
unsigned int GetOutMode(unsigned int channel);

/**
 * Enables the output. Only then does its pin follow.
 *
 * @param channel  0 or 1
 * @param state    0 off, 1 on; bit 0 counts
 * @return 0; -1 for another channel ("SetDigitalOutputEnState channel error!"), and
 *         before start-up.
 *
 * Register: IMAGE_BLOCK_3 DO1_CTRL or DO2_CTRL bit 27. Threads: any.
 */
int SetDigitalOutputEnState(unsigned int channel, unsigned int state);

/**
 * Sets the polarity of the output.
 *
 * @param channel   0 or 1
 * @param polarity  bit 0 counts
 * @return 0; -1 for another channel ("SetOutPolarity invalid parameter!"), and before start-up.
 *
 * Register: IMAGE_BLOCK_1 POLARITY bit 4 or 5. Threads: any.
 */
int SetOutPolarity(unsigned int channel, unsigned int polarity);

/**
 * Fires the output once by software.
 *
 * @param channel  0 or 1
 * @return 0; -1 for another channel ("SWTrigger invalid parameter!"), and before start-up.
 *
 * Register: IMAGE_BLOCK_3 DO1_CTRL or DO2_CTRL bit 25, a pulse of 1 us, which also clears
 * bit 26. Threads: any.
 */
int OutputSWTrigger(unsigned int channel);

/**
 * Puts an entry into the output's FIFO.
 *
 * @param channel  0 or 1
 * @return 0; -1 for another channel ("WRFifo invalid parameter!"), and before start-up.
 *
 * Register: IMAGE_BLOCK_3 DO1_CTRL or DO2_CTRL bit 26, a pulse of 1 us. Threads: any.
 */
int WRFifo(unsigned int channel);

/* --- Delays ----------------------------------------------------------------------------- */

/**
 * Selects what an output's delay counts.
 *
 * @param channel   0 or 1 for the digital outputs, 2 for the DA output
 * @param standard  0 microseconds, 1 encoder pulses
 * @return 0; -1 for another standard ("SetExtTriDelayStandard mode error!") or
 *         channel ("SetExtTriDelayStandard channel error!"), and before start-up.
 *
 * A delay already set keeps its raw value: set it again after a change.
 *
 * Register: IMAGE_BLOCK_3 DO1_CTRL or DO2_CTRL bit 28; IRQ_CTRL bit 1 for the DA
 * output. Threads: any.
 */
int SetExtTriDelayStandard(unsigned int channel, unsigned int standard);

/**
 * Switches the delay between event and pulse.
 *
 * @param channel  0 or 1
 * @param state    0 off, 1 on; bit 0 counts
 * @return 0; -1 for another channel ("SetOutDelayEn invalid parameter!"), and before start-up.
 *
 * Register: IMAGE_BLOCK_3 DO1_CTRL or DO2_CTRL bit 24. Threads: any.
 */
int SetOutDelayEn(unsigned int channel, unsigned int state);

/**
 * @param channel  0 or 1
 * @return 0 off, 1 on; all ones for another channel ("GetOutDelayEn invalid
 *         parameter!"), and before start-up.
 *
 * Register: IMAGE_BLOCK_3 DO1_CTRL or DO2_CTRL bit 24. Threads: any.
 */
unsigned int GetOutDelayEn(unsigned int channel);

/**
 * Sets the delay between event and pulse. SetOutDelayEn() switches it on.
 *
 * @param channel  0 or 1
 * @param delay    microseconds or encoder pulses, see SetExtTriDelayStandard(). The
 *                 FPGA receives microseconds x 50, in 64 bits.
 * @return 0; -1 for another channel ("SetOutDelay invalid parameter!"), and before start-up.
 *
 * Registers: IMAGE_BLOCK_3 DO1_DELAY_L, then DO1_DELAY_H; or DO2_DELAY_L, _H.
 * Threads: any.
 */
int SetOutDelay(unsigned int channel, uint64_t delay);

/**
 * @param channel  0 or 1
 * @return the delay in the unit of the channel's standard (microseconds are rounded
 *         down); all ones for another channel ("GetOutDelay invalid parameter!"), and
 *         before start-up.
 *
 * Registers: IMAGE_BLOCK_3 DO1_DELAY_L, then DO1_DELAY_H; or DO2_DELAY_L, _H.
 * Threads: any.
 */
uint64_t GetOutDelay(unsigned int channel);

/**
 * Sets the delay of the DA output.
 *
 * @param delay  microseconds or encoder pulses, see SetExtTriDelayStandard(2, ...).
 *               The register receives microseconds x 50 (32 bits: at most 85899345 us).
 * @return 0, or -1 before start-up.
 *
 * Register: IMAGE_BLOCK_3 DA_OUTPUT_DELAY. Threads: any.
 */
int SetDAOutputDelay(unsigned int delay);

/* --- DA output -------------------------------------------------------------------------- */

/**
 * Sets the analogue output.
 *
 * @param value  0 to 4095, the converter's range; the low 12 bits count
 * @return 0; -1 when the converter does not answer, and before start-up.
 *
 * Device: DA converter at I2C address 0x60. Threads: one.
 */
int DAWrite(unsigned int value);

/**
 * Switches the notification that the hardware has applied a DA value: a thread
 * waits for the interrupt (/dev/uio1) and calls the handler of
 * TESSALINE_EVENT_DA_ARRIVED.
 *
 * @param state  1 on, 0 off; any other value changes nothing
 * @return 0. On while on: -2 ("SetDADelayState This thread has been opened!" on
 *         standard output). Off while off: 0 ("SetDADelayState This thread has been
 *         closed!"). -1 for any other state, and for on before start-up.
 *
 * Register the handler first: an interrupt without one ends the process. After
 * switching off, the handler is not called again; the function waits up to 3 seconds for
 * a call in progress.
 *
 * Register: IMAGE_BLOCK_3 IRQ_CTRL bit 0; bits 16 to 31 are cleared. Threads: one.
 */
int SetDADelayState(unsigned int state);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
