// SPDX-License-Identifier: GPL-2.0
// One GPIO line with the number 0, which the ZynqMP boards call their laser LED. The
// parameter `level` tells what it is driven to.
#include <linux/gpio/driver.h>
#include <linux/module.h>
#include <linux/platform_device.h>

static int level = -1;
module_param(level, int, 0444);

static int get(struct gpio_chip *chip, unsigned int offset)
{
	return level > 0;
}

static void set(struct gpio_chip *chip, unsigned int offset, int value)
{
	level = value;
}

static int direction_output(struct gpio_chip *chip, unsigned int offset, int value)
{
	level = value;
	return 0;
}

static int direction_input(struct gpio_chip *chip, unsigned int offset)
{
	level = -1;
	return 0;
}

static struct gpio_chip line = {
	.label = "board_line", .owner = THIS_MODULE, .base = 0, .ngpio = 1, .get = get, .set = set,
	.direction_output = direction_output, .direction_input = direction_input,
};

static int __init board_line_init(void)
{
	return gpiochip_add_data(&line, NULL);
}

static void __exit board_line_exit(void)
{
	gpiochip_remove(&line);
}

module_init(board_line_init);
module_exit(board_line_exit);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("GPIO line 0 of a sensor board");
