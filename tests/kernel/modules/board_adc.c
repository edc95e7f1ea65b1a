// SPDX-License-Identifier: GPL-2.0
// The processor's temperature channel as an IIO device. With zynqmp=0 it has the path and name of
// the Zynq-7000's driver, with zynqmp=1 those of the ZynqMP's driver.
#include <linux/iio/iio.h>
#include <linux/module.h>
#include <linux/platform_device.h>

static bool zynqmp;
module_param(zynqmp, bool, 0444);
static int raw = 2500;
module_param(raw, int, 0644);

static struct device *soc;
static struct platform_device *amba, *adc;
static struct iio_dev *device;

static int read_raw(struct iio_dev *iio, struct iio_chan_spec const *channel, int *value, int *value2,
		    long mask)
{
	*value = raw;
	return IIO_VAL_INT;
}

static const struct iio_info info = {.read_raw = read_raw};

static struct iio_chan_spec channel = {
	.type = IIO_TEMP,
	.indexed = 1,
	.info_mask_separate = BIT(IIO_CHAN_INFO_RAW),
};

static void remove(void)
{
	if (device) {
		iio_device_unregister(device);
		iio_device_free(device);
	}
	if (!IS_ERR_OR_NULL(adc))
		platform_device_unregister(adc);
	if (!IS_ERR_OR_NULL(amba))
		platform_device_unregister(amba);
	if (!IS_ERR_OR_NULL(soc))
		root_device_unregister(soc);
}

static struct platform_device *child(struct device *parent, const char *name)
{
	struct platform_device_info description = {.parent = parent, .name = name, .id = PLATFORM_DEVID_NONE};

	return platform_device_register_full(&description);
}

static int __init board_adc_init(void)
{
	int result;

	soc = root_device_register("soc0");
	if (IS_ERR(soc))
		return PTR_ERR(soc);
	amba = child(soc, "amba");
	if (!IS_ERR(amba))
		adc = child(&amba->dev, zynqmp ? "ffa50000.ams" : "f8007100.adc");
	if (IS_ERR_OR_NULL(adc)) {
		remove();
		return -ENODEV;
	}
	if (zynqmp)
		channel.extend_name = "ps_temp";
	device = iio_device_alloc(&adc->dev, 0);
	if (!device) {
		remove();
		return -ENOMEM;
	}
	device->name = "xadc";
	device->info = &info;
	device->channels = &channel;
	device->num_channels = 1;
	result = iio_device_register(device);
	if (result) {
		iio_device_free(device);
		device = NULL;
		remove();
	}
	return result;
}

module_init(board_adc_init);
module_exit(remove);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Processor temperature of a sensor board");
