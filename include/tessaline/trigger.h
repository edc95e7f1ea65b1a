/**
 * @file
 * Trigger, encoder, and synchronisation of several devices.
 *
 * Return values, behaviour before start-up and the meaning of "Threads" are
 * explained in tessaline.h.
 */
#ifndef TESSALINE_TRIGGER_H
#define TESSALINE_TRIGGER_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/* --- Trigger source and period ---------------------------------------------------------- */

/**
 * Selects what triggers a frame.
 *
 * @param mode  0 timer, 1 encoder pulses, 2 external input, 3 also the timer (the mode
 *              after start-up); the low two bits count. TricontrolSWTrigger() works in
 *              every mode.
 * @return 0, or -1 before start-up.
 *
 * Register: IMAGE_BLOCK_1 TRIGGER_CTRL bits 0-1. Threads: any.
 * See also SetTriSpacing(), whose unit depends on the mode: set the mode first.
 */
int SetTriMode(unsigned int mode);

/**
 * Triggers one frame by software.
 *
 * @return 0, or -1 before start-up.
 *
 * Register: IMAGE_BLOCK_1 TRIGGER_CTRL bit 3, a pulse of 1 us. Threads: any.
 */
int TricontrolSWTrigger(void);

/**
 * Sets the trigger period.
 *
 * @param spacing  Trigger mode 1: encoder pulses, taken as they are. Any other
 *                 mode: microseconds; values below 2 are raised to 2. The FPGA
 *                 counts 20 ns ticks, so the register receives spacing x 50
 *                 (32 bits: at most 85899345 us).
 * @return 0, or -1 before start-up.
 *
 * Register: IMAGE_BLOCK_1 TRI_SPACING. Threads: any.
 * See also GetTriSpacing(), which returns the raw ticks.
 *
 * @code
 *   SetTriMode(0);
 *   SetTriSpacing(1000);  // 1 kHz; GetTriSpacing() is 50000
 * @endcode
 */
int SetTriSpacing(unsigned int spacing);

/**
 * @return the trigger period as the FPGA holds it: ticks of 20 ns, or encoder
 *         pulses if it was set in mode 1. Not divided back. All ones before start-up.
 *
 * Register: IMAGE_BLOCK_1 TRI_SPACING. Threads: any.
 */
unsigned int GetTriSpacing(void);

/**
 * Switches door control, in which the external input gates the trigger.
 *
 * @param state  0 off, 1 on; bit 0 counts
 * @return 0; -1 in trigger modes 2 and 3, which have no door control ("SetDoorControlEn
 *         TriMode invalid parameter!" on standard output), and before start-up.
 *
 * Register: IMAGE_BLOCK_1 TRIGGER_CTRL bit 2. Threads: any.
 */
int SetDoorControlEn(unsigned int state);

/**
 * @return 0 or 1; all ones in trigger modes 2 and 3 ("GetDoorControlEn TriMode invalid
 *         parameter!" on standard output), and before start-up.
 *
 * Register: IMAGE_BLOCK_1 TRIGGER_CTRL bit 2. Threads: any.
 */
unsigned int GetDoorControlEn(void);

/* --- Trigger delay ---------------------------------------------------------------------- */

/**
 * Selects what the trigger delay counts.
 *
 * @param standard  0 microseconds, 1 encoder pulses; bit 0 counts
 * @return 0, or -1 before start-up.
 *
 * A delay already set keeps its raw value: set it again after a change.
 *
 * Register: IMAGE_BLOCK_1 TRIGGER_CTRL bit 5. Threads: any. See also SetTriDelay().
 */
int SetTriDelayStandard(unsigned int standard);

/**
 * @return 0 microseconds, 1 encoder pulses; all ones before start-up.
 *
 * Register: IMAGE_BLOCK_1 TRIGGER_CTRL bit 5. Threads: any.
 */
unsigned int GetTriDelayStandard(void);

/**
 * Switches the delay between trigger and exposure.
 *
 * @param state  0 off, 1 on; bit 0 counts
 * @return 0, or -1 before start-up.
 *
 * Register: IMAGE_BLOCK_1 TRIGGER_CTRL bit 4. Threads: any.
 */
int SetDelayEn(unsigned int state);

/**
 * Sets the delay between trigger and exposure. SetDelayEn() switches it on.
 *
 * @param delay  microseconds or encoder pulses, see SetTriDelayStandard(). The
 *               register receives microseconds x 50 (32 bits: at most 85899345 us).
 * @return 0, or -1 before start-up.
 *
 * Register: IMAGE_BLOCK_3 TRI_DELAY. Threads: any.
 */
int SetTriDelay(unsigned int delay);

/**
 * @return the delay in the unit of the current standard (microseconds are rounded
 *         down); all ones before start-up.
 *
 * Register: IMAGE_BLOCK_3 TRI_DELAY. Threads: any.
 */
unsigned int GetTriDelay(void);

/* --- Encoder ---------------------------------------------------------------------------- */

/**
 * Selects how to treat encoder pulses against the direction of travel.
 *
 * @param mode  0 to 3, the low two bits count; 2 is the mode with a reverse distance
 * @return 0, or -1 before start-up.
 *
 * Register: IMAGE_BLOCK_3 REVERSE_CTRL bits 0-1. Threads: any.
 * See also SetReverseDistance(). SetReverseMode() sets the direction in which the sensor is
 * read.
 */
int SetReverseMode_io(unsigned int mode);

/**
 * @return the reverse mode, 0 to 3; all ones before start-up.
 *
 * Register: IMAGE_BLOCK_3 REVERSE_CTRL bits 0-1. Threads: any.
 */
unsigned int GetReverseMode_io(void);

/**
 * Sets the distance of reverse mode 2.
 *
 * @param distance  encoder pulses; the low 10 bits count
 * @return 0; -1 in any other reverse mode ("SetReverseDistance ReverseMode invalid
 *         parameter!" on standard output), and before start-up.
 *
 * Register: IMAGE_BLOCK_3 REVERSE_CTRL bits 2-11. Threads: any.
 */
int SetReverseDistance(unsigned int distance);

/**
 * @return the distance; all ones in any reverse mode but 2 ("GetReverseDistance
 *         ReverseMode invalid parameter!" on standard output), and before start-up.
 *
 * Register: IMAGE_BLOCK_3 REVERSE_CTRL bits 2-11. Threads: any.
 */
unsigned int GetReverseDistance(void);

/**
 * @return the encoder's pulse rate as the FPGA measures it; all ones before start-up.
 *
 * Register: IMAGE_BLOCK_1 ENCODER_FREQ. Threads: any.
 */
unsigned int GetEncoderFreq(void);

/**
 * @return the encoder's position in pulses; all ones before start-up.
 *
 * Registers: IMAGE_BLOCK_1 ENCODER_COUNTER_L, then _H, without a latch: if the count
 * carries into the upper word between the two reads, the result is wrong by 2^32.
 * Threads: any.
 */
uint64_t GetEncoderCounter(void);

/**
 * @return the FPGA's free-running counter, the time base of the time stamps in
 *         images and strips; all ones before start-up.
 *
 * Registers: IMAGE_BLOCK_1 TIMER_COUNTER_L, then _H, as in GetEncoderCounter().
 * Threads: any.
 */
uint64_t GetTimerCounter(void);

/* --- External input --------------------------------------------------------------------- */

/**
 * @return the FPGA's record of triggers it could not serve; all ones before start-up.
 *
 * Register: IMAGE_BLOCK_0 XTRIG_LOST_STA. Threads: any. See also TriggerLostReset().
 */
unsigned int GetXtrigLostSta(void);

/**
 * Clears the record of GetXtrigLostSta().
 *
 * @return 0, or -1 before start-up.
 *
 * Register: IMAGE_BLOCK_0 LASER_CTRL bit 0, a pulse of 1 us. Threads: any.
 */
int TriggerLostReset(void);

/**
 * Sets the shortest pulse that the external input accepts.
 *
 * @param microseconds  the register receives microseconds x 50, in ticks, cut to 32 bits
 * @return 0, or -1 before start-up.
 *
 * Register: IMAGE_BLOCK_3 EXTIN_WIDTH. Threads: any.
 */
int SetExternSignalFilter(unsigned int microseconds);

/**
 * Sets the polarity of the laser trigger.
 *
 * @param polarity  bit 0 counts
 * @return 0, or -1 before start-up.
 *
 * Register: IMAGE_BLOCK_1 POLARITY bit 2. Threads: any.
 */
int SetLasTriPolarity(unsigned int polarity);

/**
 * Switches the notification of external trigger pulses: a thread waits for the
 * interrupt (/dev/uio0) and calls the handler of TESSALINE_EVENT_EXTERNAL_TRIGGER.
 *
 * @param state  1 on, 0 off; any other value changes nothing
 * @return 0. On while on: -2 ("SetExtTriggerState This thread has been opened!" on
 *         standard output). Off while off: 0 ("SetExtTriggerState This thread has
 *         been closed!"). -1 for any other state, and for on before start-up.
 *
 * Register the handler first: an interrupt without one ends the process. After
 * switching off, the handler is not called again; the function waits up to 3 seconds for
 * a call in progress.
 *
 * Register: IMAGE_BLOCK_3 IRQ_CTRL bit 2; bits 16 to 31 are cleared. Threads: one.
 */
int SetExtTriggerState(unsigned int state);

/* --- Run and synchronise ---------------------------------------------------------------- */

/**
 * Starts or stops the acquisition.
 *
 * @param state  1 starts. 0 stops, and images exposed up to now are no longer delivered
 *               (unless SetMasterState() made this device the master). Bit 0 goes to the
 *               FPGA.
 * @return 0, or -1 before start-up.
 *
 * Stopping after a start blocks the caller for 1 s.
 *
 * Register: IMAGE_BLOCK_1 TRIGGER_CTRL bit 6. Threads: one.
 */
int SetGlobalControl(unsigned int state);

/**
 * @return 1 running, 0 stopped; all ones before start-up.
 *
 * Register: IMAGE_BLOCK_1 TRIGGER_CTRL bit 6. Threads: any.
 */
unsigned int GetGlobalControl(void);

/**
 * Makes this device the master of a synchronised group.
 *
 * @param state  bit 0 goes to the FPGA. For the delivery of images any value but 0 makes
 *               the device a master: after SetGlobalControl(0) it still delivers images of
 *               any time stamp.
 * @return 0, or -1 before start-up.
 *
 * Register: IMAGE_BLOCK_1 MASTER_CTRL bit 4; bits 5-31 are cleared. Threads: any.
 */
int SetMasterState(unsigned int state);

/**
 * @return 1 master, 0 not; all ones before start-up.
 *
 * Register: IMAGE_BLOCK_1 MASTER_CTRL bit 4. Threads: any.
 */
unsigned int GetMasterState(void);

/**
 * Sets the device's number in a synchronised group.
 *
 * @param id  the low 4 bits count
 * @return 0, or -1 before start-up.
 *
 * Register: IMAGE_BLOCK_1 MASTER_CTRL bits 0-3; bits 5-31 are cleared. Threads: any.
 */
int SetMasterConctrolID(unsigned int id);

/**
 * @return the number, 0 to 15; all ones before start-up.
 *
 * Register: IMAGE_BLOCK_1 MASTER_CTRL bits 0-3. Threads: any.
 */
unsigned int GetMasterConctrolID(void);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
