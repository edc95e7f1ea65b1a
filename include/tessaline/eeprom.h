/**
 * @file
 * The configuration store: 512 bytes in a serial EEPROM on the board.
 *
 * Only the application knows what the bytes mean. The library adds no checksum and does
 * not read back what it wrote. The EEPROM has 16-byte pages and answers at two I2C
 * addresses of bus 0: 0x50 for bytes 0 to 255, 0x51 for bytes 256 to 511.
 *
 * These functions need no start-up. They report failures on standard output and, when a
 * system call failed, its reason on standard error; nothing goes to the log. The bus
 * driver, not this code, retries a failed transfer twice.
 *
 * Threads: one. Each transfer opens and closes the bus without a lock, so no two of these
 * functions may run at the same time, and nothing else may talk to the EEPROM meanwhile.
 * They may run at the same time as all other functions.
 */
#ifndef TESSALINE_EEPROM_H
#define TESSALINE_EEPROM_H

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/* --- The whole block -------------------------------------------------------------------- */

/**
 * Writes the first bytes of the store.
 *
 * @param data  the bytes; not changed
 * @param size  how many, 1 to 512, from the start of the store
 * @return 0 ("ConfigSave successful!" on standard output), or -1: the size is out of range
 *         ("ConfigSave size error!", nothing is written), or a page could not be written
 *         ("ConfigSave error!"; the pages before it stay written). data must not be NULL.
 *
 * Writes page by page and pauses 10 ms after each, the time the EEPROM needs to store
 * it: 320 ms for everything. Prints one more line on standard output per page.
 *
 * Device: EEPROM, /dev/i2c-0. Threads: one. See also ConfigRead().
 *
 * @code
 *   unsigned char settings[300];
 *   ...
 *   if (ConfigSave(settings, sizeof settings) != 0) complain();
 * @endcode
 */
int ConfigSave(unsigned char* data, int size);

/**
 * Reads the first bytes of the store.
 *
 * @param out   receives them
 * @param size  how many, 1 to 512, from the start of the store
 * @return 0 ("ConfigRead successful!" on standard output), or -1: the size is out of range
 *         ("ConfigRead size error!", nothing is read), or a page could not be read
 *         ("ConfigRead error!"; out holds the pages before it). out must not be NULL.
 *
 * For sizes above 256 that are a multiple of 16 the texts are "ConfigSave successful!" and
 * "ConfigSave error!" instead; the bytes are read all the same.
 *
 * Reads page by page and pauses 10 ms after each.
 *
 * Device: EEPROM, /dev/i2c-0. Threads: one. See also ConfigSave().
 */
int ConfigRead(unsigned char* out, int size);

/* --- Single pages ----------------------------------------------------------------------- */

/**
 * Reads bytes of one half of the store. No pause follows.
 *
 * @param wordAddress    first byte within the half, 0 to 255
 * @param out            receives the bytes
 * @param length         how many, 0 to 17; only the low 8 bits count
 * @param deviceAddress  I2C address, 0x50 or 0x51
 * @return length as given; -1 for NULL, a longer length, or a bus that cannot be opened or
 *         does not answer (out is unchanged).
 *
 * Device: EEPROM, /dev/i2c-0. Threads: one.
 */
int eeprom_page_read(unsigned char wordAddress, void* out, unsigned int length,
                     unsigned char deviceAddress);

/**
 * Writes bytes of one page.
 *
 * @param wordAddress    first byte within the half, 0 to 255. Bytes beyond the end of its
 *                       page (the next multiple of 16) wrap to the start of the page.
 * @param data           the bytes
 * @param length         how many, 0 to 16
 * @param deviceAddress  I2C address, 0x50 or 0x51
 * @return 0 ("write byte ioctl ret = 1" on standard output); -1 for NULL, a longer length,
 *         or a bus that cannot be opened or does not answer.
 *
 * The EEPROM then does not answer for up to 10 ms: pause before the next transfer.
 *
 * Device: EEPROM, /dev/i2c-0. Threads: one.
 *
 * @code
 *   const unsigned char serial[4] = {0x12, 0x34, 0x56, 0x78};
 *   if (eeprom_page_write(0xF0, serial, sizeof serial, 0x51) == 0) usleep(10000);
 * @endcode
 */
int eeprom_page_write(unsigned char wordAddress, const void* data, unsigned char length,
                      unsigned char deviceAddress);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
