/**
 * @file
 * Everything libtessaline offers to C and C++ programs, in one header.
 *
 * Return values. Setters return 0 for success and -1 for failure, getters the
 * value. A few functions differ and say so. Hardware faults and refused arguments
 * are told on the standard output in one line; other diagnostics go to the log.
 *
 * Before start-up. A function that needs the device, called before
 * RegisterHardwareInit(), does nothing, logs an ERROR that names it, and returns
 * -1, or all ones (0xFF...) if it is a getter.
 *
 * Threads. The library takes no lock around its functions, only one around each
 * single register access. "Any" in a function's description means that it may
 * run on any thread, at the same time as any other function; but a setting that
 * shares its register with others is read, changed and written back, so of two
 * such settings at the same moment one may be lost. "One" means calls of functions
 * marked so must not overlap with each other. No function may be called from a
 * signal handler. From within an event handler every function marked "any" may be
 * called.
 *
 * Time. The FPGA counts ticks of 20 ns, 50 to the microsecond.
 */
#ifndef TESSALINE_TESSALINE_H
#define TESSALINE_TESSALINE_H

#include "tessaline/capture_statistics.h"
#include "tessaline/eeprom.h"
#include "tessaline/fpga.h"
#include "tessaline/image_processing.h"
#include "tessaline/log.h"
#include "tessaline/outputs.h"
#include "tessaline/peripherals.h"
#include "tessaline/sensor.h"
#include "tessaline/startup.h"
#include "tessaline/strip.h"
#include "tessaline/trigger.h"
#include "tessaline/video.h"

#endif
