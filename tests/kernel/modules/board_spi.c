// SPDX-License-Identifier: GPL-2.0
// Two SPI buses that each seem to have an image sensor. Bus 0 has the e2v Flash 4K. Bus 1 has the
// GMAX2509 or, with chip=1, the GSPRINT6502BSI. Registers keep the written values. The e2v needs a
// few reads of its status to complete each command.
#include <linux/debugfs.h>
#include <linux/module.h>
#include <linux/platform_device.h>
#include <linux/spi/spi.h>
#include <linux/vmalloc.h>

#define BUSES 2
#define REGISTER_BYTES 0x10000
#define LOCK_LOOKS 4
#define OTHER_LOOKS 3

// Values of the first byte.
enum { E2V_READ = 0x02, E2V_WRITE = 0x42, E2V_PAGE = 0x60, E2V_PAGES = 0x40, E2V_WORDS = 0x200 };
enum { E2V_UPDATE_REGISTERS = 0x81, E2V_UPDATE_AREA = 0x82, E2V_PLL = 0x08, E2V_SLICES = 0x63 };
enum { E2V_AREA_BUSY = 0x01, E2V_REGISTERS_BUSY = 0x10, E2V_LOCKED = 0x60, E2V_SLICES_READY = 0x80 };
enum { E2V_IDENTIFICATION_HIGH = 0x2030, E2V_IDENTIFICATION_LOW = 0x25F9 };

static unsigned int chip;
static int change_chip(const char *text, const struct kernel_param *parameter);
static const struct kernel_param_ops chip_operations = {.set = change_chip, .get = param_get_uint};
module_param_cb(chip, &chip_operations, &chip, 0644);
MODULE_PARM_DESC(chip, "on bus 1: 0 GMAX2509, 1 GSPRINT6502BSI");

static struct platform_device *parents[BUSES];
static struct spi_controller *controllers[BUSES];
static struct spi_device *devices[BUSES];
static struct dentry *debug_directory;
static u8 *registers[BUSES];
static struct debugfs_blob_wrapper blobs[BUSES];
static u8 e2v_page;

// A condition that becomes true after `looks` reads of the status. 0 means that it has not begun.
struct settling {
	unsigned int looks;
	bool settled;
};
static struct settling e2v_pll, e2v_slices, e2v_update, e2v_area;
static u32 fail_count;
static u32 transfers;

static u16 *e2v_word(unsigned int address)
{
	return (u16 *)registers[0] + (e2v_page % E2V_PAGES) * E2V_WORDS + address % E2V_WORDS;
}

static void begin(struct settling *condition, unsigned int looks)
{
	condition->looks = looks;
	condition->settled = false;
}

static void look(struct settling *condition)
{
	if (condition->looks > 0 && --condition->looks == 0)
		condition->settled = true;
}

static u16 e2v_status(void)
{
	look(&e2v_pll);
	look(&e2v_slices);
	look(&e2v_update);
	look(&e2v_area);
	return (e2v_area.looks ? E2V_AREA_BUSY : 0) | (e2v_update.looks ? E2V_REGISTERS_BUSY : 0) |
	       (e2v_pll.settled ? E2V_LOCKED : 0) | (e2v_slices.settled ? E2V_SLICES_READY : 0);
}

static void e2v_write(unsigned int address, u16 value)
{
	u16 before = *e2v_word(address);

	*e2v_word(address) = value;
	if (e2v_page != 0)
		return;
	if (address == E2V_PLL && (value & 3) == 3 && (before & 3) != 3)
		begin(&e2v_pll, LOCK_LOOKS);
	else if (address == E2V_PLL && (value & 3) != 3)
		begin(&e2v_pll, 0);
	else if (address == E2V_SLICES && (value & 1) && !(before & 1))
		begin(&e2v_slices, OTHER_LOOKS);
	else if (address == E2V_SLICES && !(value & 1))
		begin(&e2v_slices, 0);
}

static u16 e2v_read(unsigned int address)
{
	if (e2v_page == 0) {
		switch (address) {
		case 0:
			return e2v_status();
		case 1:
			return E2V_IDENTIFICATION_HIGH;
		case 2:
			return E2V_IDENTIFICATION_LOW;
		}
	}
	return *e2v_word(address);
}

static void e2v(const u8 *tx, u8 *rx, unsigned int length)
{
	unsigned int address = length >= 3 ? tx[1] << 8 | tx[2] : 0;
	unsigned int i;
	u16 value;

	switch (tx[0]) {
	case E2V_READ:
		for (i = 4; i + 1 < length; i += 2, address++) {
			value = e2v_read(address);
			rx[i] = value >> 8;
			rx[i + 1] = value;
		}
		break;
	case E2V_WRITE:
		for (i = 3; i + 1 < length; i += 2, address++)
			e2v_write(address, tx[i] << 8 | tx[i + 1]);
		break;
	case E2V_PAGE:
		if (length > 1)
			e2v_page = tx[1];
		break;
	case E2V_UPDATE_REGISTERS:
		begin(&e2v_update, OTHER_LOOKS);
		break;
	case E2V_UPDATE_AREA:
		begin(&e2v_area, OTHER_LOOKS);
		break;
	}
}

// Frames have 24 bits. Data of a read come one clock later than data of a write.
static void gmax(const u8 *tx, u8 *rx, unsigned int length)
{
	u8 address;

	if (length < 3)
		return;
	address = tx[0] << 1 | tx[1] >> 7;
	if (tx[0] & 0x80) {
		registers[1][address] = tx[1] << 1 | tx[2] >> 7;
	} else {
		rx[1] = registers[1][address] >> 2;
		rx[2] = registers[1][address] << 6;
	}
}

static void gsprint(const u8 *tx, u8 *rx, unsigned int length)
{
	unsigned int address, i;

	if (length < 2)
		return;
	address = (tx[0] & 0x7F) << 8 | tx[1];
	for (i = 2; i < length; i++, address++) {
		if (tx[0] & 0x80)
			registers[1][address % REGISTER_BYTES] = tx[i];
		else
			rx[i] = registers[1][address % REGISTER_BYTES];
	}
}

static int transfer_one(struct spi_controller *controller, struct spi_device *device,
			struct spi_transfer *transfer)
{
	u8 *answer;

	transfers++;
	if (fail_count > 0) {
		fail_count--;
		return -EIO;
	}
	if (transfer->len == 0 || !transfer->tx_buf)
		return 0;
	answer = kzalloc(transfer->len, GFP_KERNEL);
	if (!answer)
		return -ENOMEM;
	if (controller->bus_num == 0)
		e2v(transfer->tx_buf, answer, transfer->len);
	else if (chip == 0)
		gmax(transfer->tx_buf, answer, transfer->len);
	else
		gsprint(transfer->tx_buf, answer, transfer->len);
	if (transfer->rx_buf)
		memcpy(transfer->rx_buf, answer, transfer->len);
	kfree(answer);
	return 0;
}

// A change also resets the chips of both buses.
static int change_chip(const char *text, const struct kernel_param *parameter)
{
	int i, result = param_set_uint(text, parameter);

	if (result)
		return result;
	for (i = 0; i < BUSES; i++)
		if (registers[i])
			memset(registers[i], 0, REGISTER_BYTES);
	e2v_page = 0;
	begin(&e2v_pll, 0);
	begin(&e2v_slices, 0);
	return 0;
}

static void set_cs(struct spi_device *device, bool high)
{
}

static int add_bus(int number)
{
	struct spi_board_info info = {.modalias = "dh2228fv", .bus_num = number, .max_speed_hz = 25000000};
	struct spi_controller *controller;
	int result;

	registers[number] = vzalloc(REGISTER_BYTES);
	if (!registers[number])
		return -ENOMEM;
	parents[number] = platform_device_register_simple("board_spi", number, NULL, 0);
	if (IS_ERR(parents[number]))
		return PTR_ERR(parents[number]);
	controller = spi_alloc_master(&parents[number]->dev, 0);
	if (!controller)
		return -ENOMEM;
	controller->bus_num = number;
	controller->num_chipselect = 1;
	controller->mode_bits = SPI_CPOL | SPI_CPHA;
	controller->bits_per_word_mask = SPI_BPW_MASK(8);
	controller->transfer_one = transfer_one;
	controller->set_cs = set_cs;
	result = spi_register_controller(controller);
	if (result) {
		spi_controller_put(controller);
		return result;
	}
	controllers[number] = controller;
	devices[number] = spi_new_device(controller, &info);
	return devices[number] ? 0 : -ENODEV;
}

static void remove_buses(void)
{
	int i;

	debugfs_remove_recursive(debug_directory);
	for (i = 0; i < BUSES; i++) {
		if (controllers[i])
			spi_unregister_controller(controllers[i]);
		if (!IS_ERR_OR_NULL(parents[i]))
			platform_device_unregister(parents[i]);
		vfree(registers[i]);
	}
}

static int __init board_spi_init(void)
{
	static const char *const names[BUSES] = {"chip0", "chip1"};
	int i, result;

	debug_directory = debugfs_create_dir("board_spi", NULL);
	for (i = 0; i < BUSES; i++) {
		result = add_bus(i);
		if (result) {
			remove_buses();
			return result;
		}
		blobs[i].data = registers[i];
		blobs[i].size = REGISTER_BYTES;
		debugfs_create_blob(names[i], 0444, debug_directory, &blobs[i]);
	}
	debugfs_create_u32("fail_count", 0644, debug_directory, &fail_count);
	debugfs_create_u32("transfers", 0644, debug_directory, &transfers);
	return 0;
}

module_init(board_spi_init);
module_exit(remove_buses);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("SPI buses of a sensor board");
