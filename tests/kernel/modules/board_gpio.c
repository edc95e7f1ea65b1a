// SPDX-License-Identifier: GPL-2.0
// GPIO lines with the numbers of the ZynqMP boards: 338 to 511, and line 0 for the laser LED.
// debugfs shows the levels, one character per line: 1 or 0, or i for an input.
#include <linux/debugfs.h>
#include <linux/gpio/driver.h>
#include <linux/module.h>

#define FIRST 338
#define LINES 174

struct bank {
	struct gpio_chip chip;
	char *levels;
	struct debugfs_blob_wrapper blob;
};

static char many[LINES], one[1];
static struct bank banks[2];
static struct dentry *debug_directory;

static int get(struct gpio_chip *chip, unsigned int line)
{
	return container_of(chip, struct bank, chip)->levels[line] == '1';
}

static void set(struct gpio_chip *chip, unsigned int line, int value)
{
	container_of(chip, struct bank, chip)->levels[line] = value ? '1' : '0';
}

static int direction_output(struct gpio_chip *chip, unsigned int line, int value)
{
	set(chip, line, value);
	return 0;
}

static int direction_input(struct gpio_chip *chip, unsigned int line)
{
	container_of(chip, struct bank, chip)->levels[line] = 'i';
	return 0;
}

static int get_direction(struct gpio_chip *chip, unsigned int line)
{
	return container_of(chip, struct bank, chip)->levels[line] == 'i';
}

static int add(struct bank *bank, const char *label, int base, char *levels, unsigned int count)
{
	memset(levels, 'i', count);
	bank->levels = levels;
	bank->blob = (struct debugfs_blob_wrapper){levels, count};
	bank->chip = (struct gpio_chip){
		.label = label, .owner = THIS_MODULE, .base = base, .ngpio = count, .get = get,
		.set = set, .direction_output = direction_output,
		.direction_input = direction_input, .get_direction = get_direction,
	};
	debugfs_create_blob(label, 0444, debug_directory, &bank->blob);
	return gpiochip_add_data(&bank->chip, NULL);
}

static int __init board_gpio_init(void)
{
	int result;

	debug_directory = debugfs_create_dir("board_gpio", NULL);
	result = add(&banks[0], "from338", FIRST, many, LINES);
	if (!result) {
		result = add(&banks[1], "from0", 0, one, 1);
		if (result)
			gpiochip_remove(&banks[0].chip);
	}
	if (result)
		debugfs_remove_recursive(debug_directory);
	return result;
}

static void __exit board_gpio_exit(void)
{
	gpiochip_remove(&banks[1].chip);
	gpiochip_remove(&banks[0].chip);
	debugfs_remove_recursive(debug_directory);
}

module_init(board_gpio_init);
module_exit(board_gpio_exit);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("GPIO lines of a sensor board");
