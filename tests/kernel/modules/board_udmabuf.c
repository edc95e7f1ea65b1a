// SPDX-License-Identifier: GPL-2.0
// Replaces the u-dma-buf driver: one area of memory behind /dev/udmabuf0, and its attributes under
// /sys/class/u-dma-buf. Here the processor and the frame grabber see the same memory, so a
// synchronisation is only counted.
#include <linux/cdev.h>
#include <linux/device.h>
#include <linux/fs.h>
#include <linux/mm.h>
#include <linux/module.h>
#include <linux/vmalloc.h>

static unsigned int megabytes = 320;
module_param(megabytes, uint, 0444);

static dev_t number;
static struct cdev node;
static struct class *driver_class;
static void *area;

static u64 sync_offset, sync_size, sync_direction, sync_mode;
static u64 sync_for_cpu, sync_for_device;	// number of calls

static bool is_inside(void)
{
	u64 bytes = (u64)megabytes << 20;

	return sync_offset <= bytes && sync_size <= bytes - sync_offset;
}

#define ATTRIBUTE(name, KEEP)                                                                   \
	static ssize_t name##_show(struct device *device, struct device_attribute *attribute,   \
				   char *text)                                                  \
	{                                                                                       \
		return sysfs_emit(text, "%llu\n", name);                                        \
	}                                                                                       \
	static ssize_t name##_store(struct device *device, struct device_attribute *attribute,  \
				    const char *text, size_t size)                              \
	{                                                                                       \
		u64 value;                                                                      \
		int result = kstrtou64(text, 0, &value);                                        \
												\
		if (result)                                                                     \
			return result;                                                          \
		KEEP;                                                                           \
		return size;                                                                    \
	}                                                                                       \
	static DEVICE_ATTR_RW(name)

#define COUNT(name)                                                                             \
	do {                                                                                    \
		if (value == 1 && !is_inside())                                                 \
			return -EINVAL;                                                         \
		name += value == 1;                                                             \
	} while (0)

ATTRIBUTE(sync_offset, sync_offset = value);
ATTRIBUTE(sync_size, sync_size = value);
ATTRIBUTE(sync_direction, sync_direction = value);
ATTRIBUTE(sync_mode, sync_mode = value);
ATTRIBUTE(sync_for_cpu, COUNT(sync_for_cpu));
ATTRIBUTE(sync_for_device, COUNT(sync_for_device));

static struct attribute *board_udmabuf_attrs[] = {
	&dev_attr_sync_offset.attr,    &dev_attr_sync_size.attr, &dev_attr_sync_direction.attr,
	&dev_attr_sync_for_cpu.attr,   &dev_attr_sync_mode.attr, &dev_attr_sync_for_device.attr,
	NULL,
};
ATTRIBUTE_GROUPS(board_udmabuf);

static int map(struct file *file, struct vm_area_struct *vma)
{
	// Marks the pages dirty. Otherwise the first write to each page is a fault, and
	// clearing the area would take seconds under emulation.
	vma->vm_page_prot = pte_pgprot(pte_mkdirty(pfn_pte(0, vma->vm_page_prot)));
	return remap_vmalloc_range(vma, area, vma->vm_pgoff);
}

static const struct file_operations operations = {.owner = THIS_MODULE, .mmap = map};

static int __init board_udmabuf_init(void)
{
	int result;

	area = vmalloc_user((unsigned long)megabytes << 20);
	if (!area)
		return -ENOMEM;
	result = alloc_chrdev_region(&number, 0, 1, "udmabuf");
	if (result)
		goto no_number;
	cdev_init(&node, &operations);
	result = cdev_add(&node, number, 1);
	if (result)
		goto no_node;
	driver_class = class_create(THIS_MODULE, "u-dma-buf");
	if (IS_ERR(driver_class)) {
		result = PTR_ERR(driver_class);
		goto no_class;
	}
	device_create_with_groups(driver_class, NULL, number, NULL, board_udmabuf_groups, "udmabuf0");
	return 0;

no_class:
	cdev_del(&node);
no_node:
	unregister_chrdev_region(number, 1);
no_number:
	vfree(area);
	return result;
}

static void __exit board_udmabuf_exit(void)
{
	device_destroy(driver_class, number);
	class_destroy(driver_class);
	cdev_del(&node);
	unregister_chrdev_region(number, 1);
	vfree(area);
}

module_init(board_udmabuf_init);
module_exit(board_udmabuf_exit);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("DMA area of a sensor board");
