/**
 * @file
 * Everything libtessaline offers to C and C++ programs, in one header.
 *
 * Return values. Setters return 0 for success and -1 for failure; getters return the
 * value. A few functions differ and say so. Hardware faults and refused arguments are
 * reported in one line on standard output; other diagnostics go to the log.
 *
 * Before start-up. A function that needs the device does nothing before
 * RegisterHardwareInit(): it logs an ERROR that names it and returns -1, or all ones
 * (0xFF...) if it is a getter.
 *
 * Threads. "Any" in a function's description means that it may run on any thread, at
 * the same time as any other function. Two threads that change the same register never
 * lose each other's change. "One" means that calls of functions marked so must not
 * overlap. No function may be called from a signal handler. An event handler may call
 * every function marked "any".
 *
 * Processes. A signal with a handler cuts no pause short. It fails only the two calls that
 * wait for a frame of plain capture, v4l2_dqbuf() and video_request_img_buf(). A cancelled
 * thread (pthread_cancel) finishes the call it is in. Devices are closed in children
 * that exec. Two C++ exceptions can leave a function: std::logic_error from
 * GetLibVersion(NULL), and std::system_error from a lock that cannot be taken. Any other
 * (out of memory, no thread) becomes an ERROR and the failure value.
 *
 * Time. The FPGA counts ticks of 20 ns, 50 per microsecond.
 */
#ifndef TESSALINE_TESSALINE_H
#define TESSALINE_TESSALINE_H

#include "tessaline/capture_statistics.h"
#include "tessaline/eeprom.h"
#include "tessaline/fpga.h"
#include "tessaline/frames.h"
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
