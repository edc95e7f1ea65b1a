// SPDX-License-Identifier: GPL-2.0
// Two I2C buses with the chips of the sensor boards: an EEPROM, the image sensors and the
// laser-power chips. debugfs shows the content of the chips. Bus failures are also planted there.
#include <linux/debugfs.h>
#include <linux/i2c.h>
#include <linux/jiffies.h>
#include <linux/module.h>
#include <linux/vmalloc.h>

#define BUSES 2
#define EEPROM_BYTES 512
#define EEPROM_PAGE 16
#define EEPROM_WRITE_MS 10
#define SENSOR_BYTES 0x10000

enum { EEPROM_LOW = 0x50, EEPROM_HIGH = 0x51, IMX252 = 0x10, IMX273 = 0x36 };
static const u8 position_chips[] = {0x2F, 0x3E, 0x60};

static struct i2c_adapter buses[BUSES];
static struct dentry *debug_directory;

static u8 eeprom[EEPROM_BYTES];
static u16 eeprom_pointer;
static unsigned long eeprom_ready;	// in jiffies
static u8 *sensor;
static u16 sensor_pointer;
static u8 positions[8];			// address and bytes of the last message
static struct debugfs_blob_wrapper eeprom_blob = {eeprom, EEPROM_BYTES};
static struct debugfs_blob_wrapper sensor_blob = {NULL, SENSOR_BYTES};
static struct debugfs_blob_wrapper positions_blob = {positions, sizeof(positions)};

// After `fail_skip` transfers, the next `fail_count` end with `fail_error`.
static u32 fail_skip, fail_count, fail_error;
static u32 transfers;

static bool fails_now(void)
{
	if (fail_count == 0)
		return false;
	if (fail_skip > 0) {
		fail_skip--;
		return false;
	}
	fail_count--;
	return true;
}

// Chips that this board does not have: the address, and 0x100 on bus 1.
static ushort absent[16];
static unsigned int absent_count;
module_param_array(absent, ushort, &absent_count, 0644);

static bool is_absent(struct i2c_adapter *bus, u16 address)
{
	unsigned int i;

	for (i = 0; i < absent_count; i++)
		if (absent[i] == (bus->nr << 8 | address))
			return true;
	return false;
}

static bool is_position_chip(u16 address)
{
	size_t i;

	for (i = 0; i < ARRAY_SIZE(position_chips); i++)
		if (position_chips[i] == address)
			return true;
	return false;
}

// A byte written past the end of its page goes to the start of the page.
static int eeprom_message(struct i2c_msg *message)
{
	u16 half = message->addr == EEPROM_HIGH ? EEPROM_BYTES / 2 : 0;
	int i;

	if (time_before(jiffies, eeprom_ready))
		return -ENXIO;
	if (message->flags & I2C_M_RD) {
		for (i = 0; i < message->len; i++)
			message->buf[i] = eeprom[eeprom_pointer++ % EEPROM_BYTES];
		return 0;
	}
	if (message->len == 0)
		return 0;
	eeprom_pointer = half + message->buf[0];
	for (i = 1; i < message->len; i++) {
		eeprom[eeprom_pointer] = message->buf[i];
		eeprom_pointer = (eeprom_pointer & ~(EEPROM_PAGE - 1)) |
				 ((eeprom_pointer + 1) & (EEPROM_PAGE - 1));
	}
	if (message->len > 1)
		eeprom_ready = jiffies + msecs_to_jiffies(EEPROM_WRITE_MS) / 2;
	return 0;
}

static int sensor_message(struct i2c_msg *message)
{
	int i;

	if (message->flags & I2C_M_RD) {
		for (i = 0; i < message->len; i++)
			message->buf[i] = sensor[sensor_pointer++];
		return 0;
	}
	if (message->len < 2)
		return 0;
	sensor_pointer = message->buf[0] << 8 | message->buf[1];
	for (i = 2; i < message->len; i++)
		sensor[sensor_pointer++] = message->buf[i];
	return 0;
}

static int position_message(struct i2c_msg *message)
{
	if (message->flags & I2C_M_RD) {
		memset(message->buf, 0, message->len);
		return 0;
	}
	memset(positions, 0, sizeof(positions));
	positions[0] = message->addr;
	memcpy(positions + 1, message->buf, min_t(size_t, message->len, sizeof(positions) - 1));
	return 0;
}

static int one_message(struct i2c_adapter *bus, struct i2c_msg *message)
{
	if (is_absent(bus, message->addr))
		return -ENXIO;
	if (is_position_chip(message->addr))
		return position_message(message);
	if (bus->nr != 0)
		return -ENXIO;
	switch (message->addr) {
	case EEPROM_LOW:
	case EEPROM_HIGH:
		return eeprom_message(message);
	case IMX252:
	case IMX273:
		return sensor_message(message);
	default:
		return -ENXIO;
	}
}

static int transfer(struct i2c_adapter *bus, struct i2c_msg *messages, int count)
{
	int i, result;

	transfers++;
	if (fails_now())
		return -(int)fail_error;
	for (i = 0; i < count; i++) {
		// No block reads: see functionality().
		if (messages[i].flags & I2C_M_RECV_LEN)
			return -EOPNOTSUPP;
		result = one_message(bus, &messages[i]);
		if (result)
			return result;
	}
	return count;
}

static u32 functionality(struct i2c_adapter *bus)
{
	return I2C_FUNC_I2C | I2C_FUNC_SMBUS_EMUL;
}

static const struct i2c_algorithm algorithm = {
	.master_xfer = transfer,
	.functionality = functionality,
};

// Writing any value to the parameter switches the sensors off and on.
static int reset_sensors(const char *text, const struct kernel_param *parameter)
{
	if (sensor)
		memset(sensor, 0, SENSOR_BYTES);
	return 0;
}

static const struct kernel_param_ops reset_operations = {.set = reset_sensors};
module_param_cb(reset, &reset_operations, NULL, 0200);

static int __init board_i2c_init(void)
{
	int i, result;

	sensor = vzalloc(SENSOR_BYTES);
	if (!sensor)
		return -ENOMEM;
	sensor_blob.data = sensor;
	memset(eeprom, 0xFF, sizeof(eeprom));
	eeprom_ready = jiffies;
	for (i = 0; i < BUSES; i++) {
		buses[i].owner = THIS_MODULE;
		buses[i].algo = &algorithm;
		buses[i].nr = i;
		snprintf(buses[i].name, sizeof(buses[i].name), "sensor board bus %d", i);
		result = i2c_add_numbered_adapter(&buses[i]);
		if (result) {
			while (i-- > 0)
				i2c_del_adapter(&buses[i]);
			vfree(sensor);
			return result;
		}
	}
	debug_directory = debugfs_create_dir("board_i2c", NULL);
	debugfs_create_blob("eeprom", 0444, debug_directory, &eeprom_blob);
	debugfs_create_blob("sensor", 0444, debug_directory, &sensor_blob);
	debugfs_create_blob("positions", 0444, debug_directory, &positions_blob);
	debugfs_create_u32("fail_skip", 0644, debug_directory, &fail_skip);
	debugfs_create_u32("fail_count", 0644, debug_directory, &fail_count);
	debugfs_create_u32("fail_error", 0644, debug_directory, &fail_error);
	debugfs_create_u32("transfers", 0644, debug_directory, &transfers);
	return 0;
}

static void __exit board_i2c_exit(void)
{
	int i;

	debugfs_remove_recursive(debug_directory);
	for (i = 0; i < BUSES; i++)
		i2c_del_adapter(&buses[i]);
	vfree(sensor);
}

module_init(board_i2c_init);
module_exit(board_i2c_exit);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("I2C buses of a sensor board");
