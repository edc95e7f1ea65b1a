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
 * Threads. "Any" in a function's description means that it may run on any thread, at
 * the same time as any other function: a change of a register is never lost to another
 * thread's change of the same register. "One" means calls of functions marked so must
 * not overlap with each other. No function may be called from a signal handler. From
 * within an event handler every function marked "any" may be called.
 *
 * Processes. Signals with a handler cut no pause short and fail no call but the two that
 * wait for a frame of plain capture, v4l2_dqbuf() and video_request_img_buf(). A thread that
 * is cancelled (pthread_cancel) finishes the call it is in. Devices are closed in children
 * that exec. No C++ exception leaves a function, but std::logic_error from
 * GetLibVersion(NULL) and std::system_error from a lock that cannot be taken; what else is
 * thrown, for want of memory or of a thread, becomes an ERROR and the failure value.
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
