// SPDX-License-Identifier: GPL-2.0
// The two capture devices of a sensor board on the kernel's V4L2 and videobuf2 frameworks, for the
// comparison of standard tools. Grey frames of any size, no controls, one input, the FPGA. Frames
// come while the parameter `frames` is 1: all bytes of a frame are its number.
#include <linux/module.h>
#include <linux/platform_device.h>
#include <linux/workqueue.h>
#include <media/v4l2-device.h>
#include <media/v4l2-ioctl.h>
#include <media/videobuf2-v4l2.h>
#include <media/videobuf2-vmalloc.h>

#define NODES 2
#define MIN_WIDTH 16
#define MIN_HEIGHT 1
#define MAX_SIDE 16384
#define FRAME_MS 20

static bool frames;
module_param(frames, bool, 0644);

static const char *const cards[NODES] = {"image stream", "strip stream"};

struct frame {
	struct vb2_v4l2_buffer vb;
	struct list_head list;
};

struct capture {
	struct v4l2_device v4l2;
	struct video_device video;
	struct vb2_queue queue;
	struct mutex lock;
	struct v4l2_pix_format format;
	spinlock_t list_lock;
	struct list_head waiting;
	struct delayed_work next_frame;
	unsigned int sequence;
	int number;
};

static struct platform_device *parents[NODES];
static struct capture *nodes[NODES];

static void fill(struct work_struct *work)
{
	struct capture *node = container_of(to_delayed_work(work), struct capture, next_frame);
	struct frame *frame = NULL;

	spin_lock(&node->list_lock);
	if (frames && !list_empty(&node->waiting)) {
		frame = list_first_entry(&node->waiting, struct frame, list);
		list_del(&frame->list);
	}
	spin_unlock(&node->list_lock);
	if (frame) {
		memset(vb2_plane_vaddr(&frame->vb.vb2_buf, 0), node->sequence,
		       node->format.sizeimage);
		frame->vb.sequence = node->sequence++;
		frame->vb.field = V4L2_FIELD_NONE;
		frame->vb.vb2_buf.timestamp = ktime_get_ns();
		vb2_buffer_done(&frame->vb.vb2_buf, VB2_BUF_STATE_DONE);
	}
	schedule_delayed_work(&node->next_frame, msecs_to_jiffies(FRAME_MS));
}

static int queue_setup(struct vb2_queue *queue, unsigned int *buffers, unsigned int *planes,
		       unsigned int sizes[], struct device *devices[])
{
	struct capture *node = vb2_get_drv_priv(queue);

	if (*planes)
		return sizes[0] < node->format.sizeimage ? -EINVAL : 0;
	*planes = 1;
	sizes[0] = node->format.sizeimage;
	return 0;
}

static int buf_prepare(struct vb2_buffer *buffer)
{
	struct capture *node = vb2_get_drv_priv(buffer->vb2_queue);

	if (vb2_plane_size(buffer, 0) < node->format.sizeimage)
		return -EINVAL;
	vb2_set_plane_payload(buffer, 0, node->format.sizeimage);
	return 0;
}

static void buf_queue(struct vb2_buffer *buffer)
{
	struct capture *node = vb2_get_drv_priv(buffer->vb2_queue);
	struct frame *frame = container_of(to_vb2_v4l2_buffer(buffer), struct frame, vb);

	spin_lock(&node->list_lock);
	list_add_tail(&frame->list, &node->waiting);
	spin_unlock(&node->list_lock);
}

static int start_streaming(struct vb2_queue *queue, unsigned int count)
{
	struct capture *node = vb2_get_drv_priv(queue);

	node->sequence = 0;
	schedule_delayed_work(&node->next_frame, msecs_to_jiffies(FRAME_MS));
	return 0;
}

static void stop_streaming(struct vb2_queue *queue)
{
	struct capture *node = vb2_get_drv_priv(queue);
	struct frame *frame, *next;

	cancel_delayed_work_sync(&node->next_frame);
	list_for_each_entry_safe(frame, next, &node->waiting, list) {
		list_del(&frame->list);
		vb2_buffer_done(&frame->vb.vb2_buf, VB2_BUF_STATE_ERROR);
	}
}

static const struct vb2_ops queue_operations = {
	.queue_setup = queue_setup,
	.buf_prepare = buf_prepare,
	.buf_queue = buf_queue,
	.start_streaming = start_streaming,
	.stop_streaming = stop_streaming,
	.wait_prepare = vb2_ops_wait_prepare,
	.wait_finish = vb2_ops_wait_finish,
};

static int query_capabilities(struct file *file, void *unused, struct v4l2_capability *answer)
{
	struct capture *node = video_drvdata(file);

	strscpy(answer->driver, "board_video", sizeof(answer->driver));
	strscpy(answer->card, cards[node->number], sizeof(answer->card));
	return 0;
}

static int enum_format(struct file *file, void *unused, struct v4l2_fmtdesc *answer)
{
	if (answer->index)
		return -EINVAL;
	answer->pixelformat = V4L2_PIX_FMT_GREY;
	return 0;
}

static int enum_size(struct file *file, void *unused, struct v4l2_frmsizeenum *answer)
{
	if (answer->index || answer->pixel_format != V4L2_PIX_FMT_GREY)
		return -EINVAL;
	answer->type = V4L2_FRMSIZE_TYPE_CONTINUOUS;
	answer->stepwise = (struct v4l2_frmsize_stepwise){MIN_WIDTH, MAX_SIDE, 1,
							  MIN_HEIGHT, MAX_SIDE, 1};
	return 0;
}

static int get_format(struct file *file, void *unused, struct v4l2_format *format)
{
	struct capture *node = video_drvdata(file);

	format->fmt.pix = node->format;
	return 0;
}

static int try_format(struct file *file, void *unused, struct v4l2_format *format)
{
	struct v4l2_pix_format *pix = &format->fmt.pix;

	pix->width = clamp_t(u32, pix->width, MIN_WIDTH, MAX_SIDE);
	pix->height = clamp_t(u32, pix->height, MIN_HEIGHT, MAX_SIDE);
	pix->pixelformat = V4L2_PIX_FMT_GREY;
	pix->field = V4L2_FIELD_NONE;
	pix->bytesperline = pix->width;
	pix->sizeimage = pix->width * pix->height;
	pix->colorspace = V4L2_COLORSPACE_RAW;
	pix->ycbcr_enc = V4L2_YCBCR_ENC_DEFAULT;
	pix->quantization = V4L2_QUANTIZATION_DEFAULT;
	pix->xfer_func = V4L2_XFER_FUNC_DEFAULT;
	return 0;
}

static int set_format(struct file *file, void *unused, struct v4l2_format *format)
{
	struct capture *node = video_drvdata(file);

	try_format(file, unused, format);
	if (vb2_is_busy(&node->queue))
		return -EBUSY;
	node->format = format->fmt.pix;
	return 0;
}

static int enum_input(struct file *file, void *unused, struct v4l2_input *input)
{
	if (input->index)
		return -EINVAL;
	strscpy(input->name, "FPGA", sizeof(input->name));
	input->type = V4L2_INPUT_TYPE_CAMERA;
	return 0;
}

static int get_input(struct file *file, void *unused, unsigned int *input)
{
	*input = 0;
	return 0;
}

static int set_input(struct file *file, void *unused, unsigned int input)
{
	return input ? -EINVAL : 0;
}

static const struct v4l2_ioctl_ops ioctls = {
	.vidioc_querycap = query_capabilities,
	.vidioc_enum_fmt_vid_cap = enum_format,
	.vidioc_enum_framesizes = enum_size,
	.vidioc_g_fmt_vid_cap = get_format,
	.vidioc_try_fmt_vid_cap = try_format,
	.vidioc_s_fmt_vid_cap = set_format,
	.vidioc_enum_input = enum_input,
	.vidioc_g_input = get_input,
	.vidioc_s_input = set_input,
	.vidioc_reqbufs = vb2_ioctl_reqbufs,
	.vidioc_create_bufs = vb2_ioctl_create_bufs,
	.vidioc_prepare_buf = vb2_ioctl_prepare_buf,
	.vidioc_querybuf = vb2_ioctl_querybuf,
	.vidioc_qbuf = vb2_ioctl_qbuf,
	.vidioc_dqbuf = vb2_ioctl_dqbuf,
	.vidioc_expbuf = vb2_ioctl_expbuf,
	.vidioc_streamon = vb2_ioctl_streamon,
	.vidioc_streamoff = vb2_ioctl_streamoff,
};

static const struct v4l2_file_operations file_operations = {
	.owner = THIS_MODULE,
	.open = v4l2_fh_open,
	.release = vb2_fop_release,
	.poll = vb2_fop_poll,
	.mmap = vb2_fop_mmap,
	.unlocked_ioctl = video_ioctl2,
};

static int add_node(int number)
{
	struct v4l2_format first = {.fmt.pix = {.width = 640, .height = 480}};
	struct device *parent;
	struct capture *node;
	int result;

	parents[number] = platform_device_register_simple("board_video", number, NULL, 0);
	if (IS_ERR(parents[number]))
		return PTR_ERR(parents[number]);
	parent = &parents[number]->dev;
	node = devm_kzalloc(parent, sizeof(*node), GFP_KERNEL);
	if (!node)
		return -ENOMEM;
	node->number = number;
	mutex_init(&node->lock);
	spin_lock_init(&node->list_lock);
	INIT_LIST_HEAD(&node->waiting);
	INIT_DELAYED_WORK(&node->next_frame, fill);
	try_format(NULL, NULL, &first);
	node->format = first.fmt.pix;
	// The device has no driver whose name it would take.
	strscpy(node->v4l2.name, "board_video", sizeof(node->v4l2.name));
	result = v4l2_device_register(parent, &node->v4l2);
	if (result)
		return result;

	node->queue.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
	node->queue.io_modes = VB2_MMAP | VB2_USERPTR;
	node->queue.drv_priv = node;
	node->queue.buf_struct_size = sizeof(struct frame);
	node->queue.ops = &queue_operations;
	node->queue.mem_ops = &vb2_vmalloc_memops;
	node->queue.timestamp_flags = V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC;
	node->queue.lock = &node->lock;
	result = vb2_queue_init(&node->queue);
	if (result)
		goto failed;

	snprintf(node->video.name, sizeof(node->video.name), "board_video-video%d", number);
	node->video.fops = &file_operations;
	node->video.ioctl_ops = &ioctls;
	node->video.v4l2_dev = &node->v4l2;
	node->video.queue = &node->queue;
	node->video.lock = &node->lock;
	node->video.release = video_device_release_empty;
	node->video.device_caps = V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING;
	video_set_drvdata(&node->video, node);
	result = video_register_device(&node->video, VFL_TYPE_VIDEO, number);
	if (result)
		goto failed;
	nodes[number] = node;
	return 0;

failed:
	v4l2_device_unregister(&node->v4l2);
	return result;
}

static void remove_nodes(void)
{
	int i;

	for (i = 0; i < NODES; i++) {
		if (nodes[i]) {
			vb2_video_unregister_device(&nodes[i]->video);
			v4l2_device_unregister(&nodes[i]->v4l2);
		}
		if (!IS_ERR_OR_NULL(parents[i]))
			platform_device_unregister(parents[i]);
	}
}

static int __init board_video_init(void)
{
	int i, result;

	for (i = 0; i < NODES; i++) {
		result = add_node(i);
		if (result) {
			remove_nodes();
			return result;
		}
	}
	return 0;
}

module_init(board_video_init);
module_exit(remove_nodes);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Capture devices of a sensor board");
