/**
 * @file
 * Word access to the FPGA's registers.
 *
 * Every access is its own transaction: open /dev/mem, map the block, one aligned 32-bit
 * load or store, close, unmap. A process-wide mutex serialises the transactions, so a
 * single word is never torn. The library holds the mutex for a whole change of a register
 * (read, replace, write; or a pulse). A read-modify-write made of two calls of these
 * functions is not atomic.
 */
#ifndef TESSALINE_FPGA_H
#define TESSALINE_FPGA_H

#include <pthread.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/**
 * The lock around every register access. RegisterHardwareInit() initialises it; before
 * that it works too, with default attributes.
 */
extern pthread_mutex_t fpga_contol;

/**
 * Reads one register.
 *
 * @param block_base  physical address of a register block (page aligned)
 * @param index       word index within the block, below 32 (byte offset / 4)
 * @return the register's value; 0xFFFFFFFF when /dev/mem cannot be opened. That is
 *         reported on standard output ("open(/dev/mem) failed."), on standard error with
 *         what follows from it, and is final: the lock stays taken, and every later access
 *         of the process blocks. Only on a thread that
 *         is ending the process after SIGINT do accesses fail at once.
 *
 * Threads: any.
 */
unsigned int fpga_read_addr(unsigned int block_base, unsigned int index);

/**
 * Writes one register.
 *
 * @param block_base  physical address of a register block (page aligned)
 * @param index       word index within the block, below 32
 * @param value       the 32-bit word
 * @return 0; 0xFFFFFFFF when /dev/mem cannot be opened, as for fpga_read_addr(), and, once
 *         SIGINT has stopped the FPGA, on every thread but the one that ends the process.
 *
 * Threads: any.
 */
unsigned int fpga_write_addr(unsigned int block_base, unsigned int index, unsigned int value);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
