/**
 * @file
 * Plain capture of 8-bit grey frames from a Video4Linux2 device, for hosts that drive
 * a video device themselves.
 *
 * Independent of the rest of the library: it needs no start-up, and nothing else uses
 * it. A device that RegisterHardwareInit() has started belongs to the library's capture
 * threads; open another one here.
 *
 * There are two ways to use it. The channel functions (create_video_channel() and those
 * that take a channel) do everything; a failed set-up ends the process. The v4l2_ functions
 * are the single steps. "Reported" below means: failures are printed on standard output,
 * some with their reason on standard error; nothing goes to the log.
 *
 * Null pointers are refused like any other failure, with EFAULT ("Bad address") as the
 * reason. They never end the process, except as the device of create_video_channel().
 *
 * Threads: one. All calls for one device or channel come from one thread at a time;
 * different channels do not touch each other.
 *
 * @code
 *   tessaline_video_channel* channel =
 *       create_video_channel("/dev/video0", 0, 1456, 1088, 0, 7, 4);
 *   video_start_capture(channel);
 *   for (int i = 0; i < 100; ++i) {
 *     int result;
 *     tessaline_image_buffer* image = video_request_img_buf(channel, &result);
 *     if (result != 0) break;
 *     use(image->address, image->width, image->height);
 *     video_release_img_buf(channel, image);
 *   }
 *   video_stop_capture(channel);
 *   close_video_channel(channel);
 * @endcode
 */
#ifndef TESSALINE_VIDEO_H
#define TESSALINE_VIDEO_H

/* The kernel's header takes struct timespec for granted. */
/* clang-format off */
#include <stdint.h>
#include <time.h>
#include <linux/videodev2.h>
/* clang-format on */

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/* --- Records ---------------------------------------------------------------------------- */

/**
 * One frame buffer: 176 bytes on the board's 64-bit processors. It comes from
 * v4l2_reqbufs() or create_video_channel(), and the library owns it.
 */
typedef struct {
  uint32_t width;                /**< pixels per row, as asked for; 0 from v4l2_reqbufs() */
  uint32_t height;               /**< rows, as asked for; 0 from v4l2_reqbufs() */
  uint32_t tag;                  /**< the caller's value, from create_video_channel() */
  uint32_t sequence;             /**< the driver's frame number at the last dequeue */
  uint8_t reserved_16[8];        /**< not for use */
  void* address;                 /**< the mapped frame, one byte per pixel */
  struct v4l2_buffer descriptor; /**< as the last dequeue left it; before that, only its index */
  uint32_t in_use;          /**< 1 once video_request_img_buf() has handed it out; never cleared */
  uint8_t reserved_124[52]; /**< not for use */
} tessaline_image_buffer;

/** An open device with its buffers. */
typedef struct {
  int fd;                          /**< descriptor of the device */
  uint32_t width;                  /**< pixels per row, as asked for */
  uint32_t height;                 /**< rows, as asked for */
  uint32_t tag;                    /**< the caller's value, copied into every buffer */
  uint32_t count;                  /**< number of buffers that the driver granted */
  tessaline_image_buffer* buffers; /**< the buffers, by index */
} tessaline_video_channel;

/* --- Channels --------------------------------------------------------------------------- */

/**
 * Opens a capture device, sets its format to grey frames of this size, maps its buffers
 * and queues them. The stream does not run yet.
 *
 * @param device      path of the device, such as "/dev/video0"
 * @param ignored_1   ignored
 * @param width       pixels per row
 * @param height      rows. The driver may round the size without saying so: ask for a size
 *                    it supports.
 * @param ignored_2   ignored
 * @param tag         any value; every buffer carries it
 * @param count       buffers to ask for. The driver decides how many it grants, see
 *                    tessaline_video_channel::count.
 * @return the channel; close_video_channel() frees it. A failed step is reported and ends
 *         the process, with status 1 for the steps of v4l2_reqbufs(), else with 255.
 */
tessaline_video_channel* create_video_channel(const char* device, unsigned int ignored_1,
                                              unsigned int width, unsigned int height,
                                              unsigned int ignored_2, unsigned int tag,
                                              unsigned int count);

/**
 * Starts the stream.
 *
 * @return 0; -1 for NULL. A refusal by the driver is reported and ends the process with 255.
 */
int video_start_capture(tessaline_video_channel* channel);

/**
 * Stops the stream. All buffers return to the program. Queue them again with
 * video_release_img_buf() before the next start.
 *
 * @return 0; -1 for NULL. A refusal by the driver is reported and ends the process with 255.
 */
int video_stop_capture(tessaline_video_channel* channel);

/**
 * Waits for the next frame and takes it from the driver's queue.
 *
 * @param channel  the channel, its stream running
 * @param result   receives 0, or another value when there is no frame: test it before
 *                 using the buffer
 * @return the frame's buffer; give it back with video_release_img_buf(). Without a frame
 *         (reported) the first buffer, whose content then means nothing. NULL for NULL
 *         arguments, and when the channel has no buffer with the frame's index.
 */
tessaline_image_buffer* video_request_img_buf(tessaline_video_channel* channel, int* result);

/**
 * Gives a frame back to the driver.
 *
 * @param channel  the channel
 * @param image    a buffer from video_request_img_buf(); it stays marked as in use
 * @return 0; -1 for NULL and when the driver refuses, reported.
 */
int video_release_img_buf(tessaline_video_channel* channel, tessaline_image_buffer* image);

/**
 * Unmaps the buffers, closes the device and frees the channel and its buffers. It unmaps
 * width x height bytes per buffer, as asked for. If the driver's frames are larger, the
 * rest stays mapped; if they are smaller, the memory behind them is unmapped too. So
 * create_video_channel() needs a size that the driver supports.
 *
 * @return 0; -1 for NULL, reported.
 */
int close_video_channel(tessaline_video_channel* channel);

/* --- Single steps ----------------------------------------------------------------------- */

/**
 * Opens a capture device for reading and writing.
 *
 * @param path  such as "/dev/video0"
 * @return its descriptor, for v4l2_close(); -1, reported, when it cannot be opened, does
 *         not answer, or cannot capture.
 */
int v4l2_open(const char* path);

/**
 * Sets the frame format: 8-bit grey, progressive.
 *
 * @param fd             descriptor from v4l2_open()
 * @param width, height  pixels; the driver may round them
 * @return 0; -1 when the driver refuses, reported. When it only refuses to try the format,
 *         that is reported too, and the format is set anyway.
 */
int v4l2_setfmt(int fd, unsigned int width, unsigned int height);

/**
 * Asks for buffers, maps them and queues them.
 *
 * @param fd             descriptor from v4l2_open()
 * @param width, height  size of a frame in pixels
 * @param ignored        ignored
 * @param count          buffers to ask for
 * @return the buffers that the driver granted; free them with free(). Their width, height
 *         and tag are 0. A failed step is reported on standard error ("Requesting Buffer:
 *         ...", "calloc", "Querying Buffer", "mmap", "Queue Buffer") and ends the process
 *         with status 1.
 *
 * The number of buffers is not returned, and a driver grants fewer when memory is short. Ask
 * for a small number here, or use create_video_channel().
 */
tessaline_image_buffer* v4l2_reqbufs(int fd, unsigned int width, unsigned int height,
                                     unsigned int ignored, unsigned int count);

/** Starts the stream. @return 0; -1 when the driver refuses, reported. */
int v4l2_streamon(int fd);

/** Stops the stream. @return 0; -1 when the driver refuses, reported. */
int v4l2_streamoff(int fd);

/**
 * Queues a buffer for the driver to fill.
 *
 * @param fd      descriptor from v4l2_open()
 * @param buffer  its index, V4L2_BUF_TYPE_VIDEO_CAPTURE and V4L2_MEMORY_MMAP
 * @return 0; -1 when the driver refuses, reported.
 */
int v4l2_qbuf(int fd, struct v4l2_buffer* buffer);

/**
 * Waits for a filled buffer and takes it from the driver's queue.
 *
 * @param fd      descriptor from v4l2_open()
 * @param buffer  V4L2_BUF_TYPE_VIDEO_CAPTURE and V4L2_MEMORY_MMAP; receives the rest
 * @return 0; -1 when there is no frame, reported. A signal handler installed without
 *         SA_RESTART ends the wait (errno EINTR), as in video_request_img_buf().
 */
int v4l2_dqbuf(int fd, struct v4l2_buffer* buffer);

/**
 * Gives a frame back to the driver.
 *
 * @param fd     descriptor from v4l2_open()
 * @param image  a buffer whose descriptor v4l2_dqbuf() has filled
 * @return 0; -1 for NULL and when the driver refuses, reported.
 */
int v4l2_release(int fd, tessaline_image_buffer* image);

/** Closes the device. @return 0 */
int v4l2_close(int fd);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
