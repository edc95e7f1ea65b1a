// SPDX-License-Identifier: GPL-2.0
// The two interrupts of the FPGA as /dev/uio0 and /dev/uio1. They behave as in the kernel's generic
// interrupt driver: an interrupt is masked when it fires, and unmasked by writing 1. Writing 0 or 1
// to the parameter raise makes that interrupt pending.
#include <linux/interrupt.h>
#include <linux/irq.h>
#include <linux/module.h>
#include <linux/of.h>
#include <linux/platform_device.h>
#include <linux/uio_driver.h>

#define LINES 2

struct line {
	struct uio_info info;
	spinlock_t lock;
	bool masked;
};

static struct line lines[LINES];

static irqreturn_t fired(int irq, struct uio_info *info)
{
	struct line *line = info->priv;

	spin_lock(&line->lock);
	if (!line->masked) {
		line->masked = true;
		disable_irq_nosync(irq);
	}
	spin_unlock(&line->lock);
	return IRQ_HANDLED;
}

static int control(struct uio_info *info, s32 on)
{
	struct line *line = info->priv;
	unsigned long flags;

	spin_lock_irqsave(&line->lock, flags);
	if (on && line->masked)
		enable_irq(info->irq);
	else if (!on && !line->masked)
		disable_irq_nosync(info->irq);
	line->masked = !on;
	spin_unlock_irqrestore(&line->lock, flags);
	return 0;
}

static int probe(struct platform_device *device)
{
	static const char *const names[LINES] = {"external-trigger", "da-arrived"};
	int i, irq, result;

	for (i = 0; i < LINES; i++) {
		irq = platform_get_irq(device, i);
		if (irq < 0)
			return irq;
		spin_lock_init(&lines[i].lock);
		lines[i].info = (struct uio_info){
			.name = names[i], .version = "devicetree", .irq = irq,
			.handler = fired, .irqcontrol = control, .priv = &lines[i],
		};
		result = devm_uio_register_device(&device->dev, &lines[i].info);
		if (result)
			return result;
	}
	return 0;
}

static const struct of_device_id matches[] = {{.compatible = "tessaline,board-uio"}, {}};
MODULE_DEVICE_TABLE(of, matches);

static struct platform_driver board_uio = {
	.probe = probe,
	.driver = {.name = "board_uio", .of_match_table = matches},
};
module_platform_driver(board_uio);

static int raise(const char *text, const struct kernel_param *parameter)
{
	unsigned int number;
	int result = kstrtouint(text, 0, &number);

	if (result)
		return result;
	if (number >= LINES || lines[number].info.irq <= 0)
		return -EINVAL;
	return irq_set_irqchip_state(lines[number].info.irq, IRQCHIP_STATE_PENDING, true);
}

static const struct kernel_param_ops raise_operations = {.set = raise};
module_param_cb(raise, &raise_operations, NULL, 0200);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("FPGA interrupts of a sensor board");
