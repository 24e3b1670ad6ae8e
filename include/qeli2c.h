/**
 * @file qeli2c.h
 * @brief I2C and SMBus access for board control planes.
 *
 * One way for all processes of a board to reach the devices on its I2C buses, also behind one or
 * two levels of PCA9548 switches. For every access the library takes the bus for the calling
 * thread, records who took it, opens the switch path, transfers, closes the path, releases the bus,
 * and tries again when that failed.
 *
 * @section rules Rules that hold for every call
 *
 * - **Device.** A device is named by a caller-owned ::ei2c_client, zeroed before it is filled. It
 * is only read, and only during the call. The same holds for message arrays and data buffers.
 * - **Result.** Signed 32 bits: 0 or a positive count on success; -1 for a null argument or a
 * failure found by the library; ::QELI2C_NO_DEVICE_FILE when `/dev/i2c-N` cannot be opened;
 * otherwise the kernel's negative result with `errno` set. Outputs are written on success only,
 * unless the call says otherwise; but what goes to the kernel as it is - messages, SMBus data
 * areas, the buffers of EEPROM and EPLD reads - may hold what a try read that then failed.
 * - **errno.** After a locked transfer with a negative result, `errno` is that of the request which
 * gave the result. The kernel's values are those of i2c-dev: `ENXIO` no device acknowledges,
 * `EAGAIN` arbitration lost, `ETIMEDOUT`, `EBUSY` a kernel driver owns the address, `EBADMSG` wrong
 * packet error code, `EPROTO` wrong block count (see Documentation/i2c/fault-codes.rst of the Linux
 * kernel).
 * - **Null arguments** are reported through the platform's assertion service and give -1. Those of
 * devices are found before anything is transferred; those that only receive what was read may be
 * missed after the transfer. The bridge calls, epld_i2c_read_deviceId() and the Lattice and Anlogic
 * identifications write an error line instead; the two retimer calls by record say nothing. The
 * buffers of pango_i2c_read_multi_para(), of the two Anlogic identifications and of MCTP answers
 * go to the kernel as they are, which refuses a null one (`EFAULT`).
 * - **Threads and processes.** Every call may be used by any number of threads of any number of
 *   processes at once, except ui2c_to_adapter() and ui2c_to_switch(). A *locked* call holds the bus
 *   for its whole length, all its tries included, and waits without limit while another thread or
 *   process holds it. Transfers and switch calls that say "takes no lock" need a caller who holds
 *   the bus.
 * - **Cancellation.** A call that takes the bus, opens a path or needs memory ends before a
 * pending pthread_cancel() of its thread is acted on, and gives back what it took. The hold calls
 * leave the bus to the caller: a thread that may be cancelled while it holds one pushes a cleanup
 * handler. A hold belongs to the process, so it outlives a thread that ends, another thread may
 * give it back, and the end of the process frees it. Asynchronous cancellation is not supported. A
 * process of one thread that has cancelled itself may end within a call, which frees the bus, too.
 * - **Duration.** Each kernel request is preceded by a wait of at most one second for the device
 * file. A locked call tries at most four times without a pause. Only buses 0 to 15 can be locked.
 * - **Memory.** Records handed out belong to the library and stay valid until the process ends.
 * SMBus calls allocate nothing. The library starts no thread and has no configuration.
 * - **Messages** go to the platform's debug output: errors at levels 130 and 132, errors of
 * retimers and EPLDs and the findings of the EPLD identification at 180, traces and failures of
 * single tries at 135, failed argument checks at 255, an audit record of writes of 0xB0 to register
 * 0x57 of device 0x60 on bus 4 at 64. A failing mutex, EEPROM semaphore or Pango transfer is told
 * on standard output.
 * - **Lengths.** The kernel takes at most 8192 bytes in a message and 32 in an SMBus block, and
 *   refuses more with `EINVAL`, whatever a call below accepts.
 *
 * The transfers are those of the Linux i2c-dev interface (Documentation/i2c/dev-interface.rst) and
 * of the System Management Bus Specification, version 3.
 */
#ifndef QELI2C_H
#define QELI2C_H

#include <linux/i2c.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#ifdef __GNUC__
#pragma GCC visibility push(default)
#endif

/**
 * @defgroup device Devices
 * @brief How a device is named, and what the calls have in common.
 * @{
 */

/** Result when the bus's device file is not open and cannot be opened, and of a channel number
 * above 7. */
#define QELI2C_NO_DEVICE_FILE (-12345678)

/** Bytes that every SMBus data buffer handed to the calls below must hold, whatever the
 * transaction's size. */
#define QELI2C_SMBUS_AREA 256

/** Flag of ::ei2c_client: SMBus packet error checking on. */
#define QELI2C_CLIENT_PEC 0x0004

/**
 * @brief Names one device; 32 bytes, owned by the caller. Zero it before filling it.
 *
 * Example: 0x50 behind channel 3 of a switch at 0x71, itself on channel 5 of a switch at 0x70, has
 * `swi_addr` 0x00700071 and `swi_chnl` 0x00050003.
 */
typedef struct ei2c_client {
    uint32_t bus;      /**< N of `/dev/i2c-N`; 0 to 15 for every locked call. */
    uint16_t addr;     /**< 7-bit slave address. */
    uint16_t flags;    /**< ::QELI2C_CLIENT_PEC or 0. */
    uint32_t swi_addr; /**< Low half: address of the switch in front of the device, 0 for none. High
                          half: address of the switch in front of that one, 0 for none. */
    uint32_t swi_chnl; /**< Low and high half: the channel, 0 to 7, to open on each of the two. */
    char pcie_name[16]; /**< NUL-terminated name printed by the MCTP calls. */
} ei2c_client;

/** @} */

/**
 * @defgroup registry Registry
 * @brief What the library knows of each bus, switch and device: one record per key and process,
 * created at first use, never moved and never freed. Callers only read them.
 * @{
 */

/** Per-bus state. */
typedef struct ui2c_adapter_data {
    int32_t fd;    /**< Descriptor of `/dev/i2c-N`, negative while not open. */
    int32_t semid; /**< Id of the bus's semaphore, negative while not created. */
} ui2c_adapter_data;

/** One bus. */
typedef struct ui2c_adapter {
    uint32_t bus;              /**< Bus number. */
    char name[16];             /**< Empty, but for the list head. */
    struct ui2c_adapter *next; /**< Next bus, or null. */
    ui2c_adapter_data *data;   /**< Null until first needed. */
} ui2c_adapter;

/** One switch on one bus. */
typedef struct ui2c_switch {
    ui2c_adapter *adapter; /**< Its bus. */
    struct ui2c_switch
        *upstream;            /**< The switch in front of it as of the latest lookup, or null. */
    uint16_t addr;            /**< 7-bit address. */
    char name[16];            /**< Empty, but for the list head. */
    struct ui2c_switch *next; /**< Next switch, or null. */
} ui2c_switch;

/** One device. */
typedef struct ui2c_client {
    ui2c_adapter *adapter;    /**< Its bus. */
    ui2c_switch *swi;         /**< The switch directly in front of it, or null. */
    uint16_t addr;            /**< 7-bit address. */
    char name[16];            /**< Empty, but for the list head. */
    struct ui2c_client *next; /**< Next device, or null. */
} ui2c_client;

/**
 * @brief Finds or creates the records of a device: its bus, its switches, itself.
 * @param bus,addr,swi_addr,swi_chnl the fields of an ::ei2c_client. Channels are no part of a
 * device's identity.
 * @return the device's record; null when memory or the registry's mutex cannot be had.
 */
ui2c_client *ui2c_to_client(uint32_t bus, uint16_t addr, uint32_t swi_addr, uint32_t swi_chnl);

/**
 * @brief Finds or creates the record of a bus. Takes no lock, and changes the registry: not for use
 * while another thread may look anything up; ui2c_to_client() is.
 * @param bus bus number
 * @return null only without memory.
 */
ui2c_adapter *ui2c_to_adapter(uint32_t bus);

/**
 * @brief Finds or creates the near switch of a path and links the switch in front of it. As
 * ui2c_to_adapter() not for use together with other lookups.
 * @param adapter  the bus
 * @param swi_addr as in ::ei2c_client
 * @param swi_chnl not used
 * @return null when the low half of @p swi_addr is 0, or without memory.
 */
ui2c_switch *ui2c_to_switch(ui2c_adapter *adapter, uint32_t swi_addr, uint32_t swi_chnl);

/** @} */

/**
 * @defgroup lock Bus lock and access owner
 * @brief The steps of taking a bus, for callers who build a hold of their own. The order is fixed:
 * descriptor, semaphore, owner record, file lock; released in reverse.
 * @{
 */

/**
 * @brief Descriptor of the bus's device file, opened once per process.
 * @param adapter the bus
 * @return negative with `errno` set on failure.
 */
int32_t ui2c_adapter_fd(ui2c_adapter *adapter);

/**
 * @brief Takes the bus's semaphore, which all processes share; waits without limit.
 * @param adapter the bus
 * @return its id (0 or more) for ipc_unlock_adapter(), or negative: bus above 15, no semaphore, not
 * taken.
 */
int32_t ipc_lock_adapter(ui2c_adapter *adapter);

/**
 * @brief Releases the semaphore with the id that ipc_lock_adapter() gave.
 * @param semid the id
 * @return negative on failure.
 */
int32_t ipc_unlock_adapter(int32_t semid);

/**
 * @brief Takes the exclusive lock on a bus's device file.
 * @param fd descriptor of the device file
 * @return 0, or -1.
 */
int32_t exclusive_file_lock(int32_t fd);

/**
 * @brief Releases that lock.
 * @param fd descriptor of the device file
 * @return negative on failure.
 */
int32_t surrender_i2c_access(int32_t fd);

/**
 * @brief Records this process (@p adapter not null) as the last one that took the bus, in the owner
 * table at physical 0xB8210000 (sixteen 32-bit process ids, one per bus). Buses above 15 record
 * nothing.
 * @param adapter the bus
 * @return no meaning.
 */
int32_t getPidOfI2CAccess(ui2c_adapter *adapter);

/** Address of the owner table in this process, 0 until mapped. */
extern uintptr_t tpidMap;
/** 1 once the owner table is mapped. */
extern uint32_t mapFlag;
/** The process id written to the owner table, read when the table is mapped. */
extern uint32_t pid;
/** For the use of other programs; not read by the library. */
extern uint32_t g_dwEi2cLog;

/** @} */

/**
 * @defgroup raw Raw transfers
 * @brief One kernel request each. They take no lock, open no switch and do not retry.
 * @{
 */

/**
 * @brief One combined transfer: @p num messages between one START and one STOP (`I2C_RDWR`).
 * @param adapter the bus
 * @param addr    address given to the kernel for the descriptor; each message carries its own
 * @param msgs    the messages, not null; the first byte of the first one's buffer is traced, so
 * a buffer that is not null has one even when its message is empty
 * @param num     how many; only the low 8 bits reach the kernel, which takes at most 42
 * @return messages done; ::QELI2C_NO_DEVICE_FILE; -1 with `ETIMEDOUT` when the device file is not
 * ready within a second, with `EINVAL` for a descriptor of 1024 or more; or the kernel's negative
 * result
 */
int32_t ui2c_rdwr_xfer(ui2c_adapter *adapter, uint16_t addr, struct i2c_msg *msgs, int32_t num);

/**
 * @brief Reads one byte without a register number.
 * @param adapter the bus
 * @param addr    7-bit slave address
 * @param value   receives the byte
 * @return 1 with the byte in @p value, or negative.
 */
int32_t ui2c_raw_read_byte(ui2c_adapter *adapter, uint16_t addr, uint8_t *value);

/**
 * @brief Writes one byte without a register number.
 * @param adapter the bus
 * @param addr    7-bit slave address
 * @param value   the byte
 * @return 1, or negative.
 */
int32_t ui2c_raw_write_byte(ui2c_adapter *adapter, uint16_t addr, uint8_t value);

/**
 * @brief One SMBus transaction (`I2C_SMBUS`).
 * @param adapter    the bus
 * @param addr       7-bit slave address; refused with `EBUSY` while a kernel driver owns it
 * @param flags      ::QELI2C_CLIENT_PEC or 0
 * @param read_write `I2C_SMBUS_READ` (1) or `I2C_SMBUS_WRITE` (0)
 * @param command    command code
 * @param size       `I2C_SMBUS_QUICK` to `I2C_SMBUS_I2C_BLOCK_DATA`
 * @param data       null, or ::QELI2C_SMBUS_AREA bytes laid out as `union i2c_smbus_data`; all of
 * them are copied in before a write or block process call, and out after a successful read or block
 * process call
 * @return 0, or negative as for ui2c_rdwr_xfer()
 */
int32_t ui2c_smbus_xfer(ui2c_adapter *adapter, uint16_t addr, uint16_t flags, char read_write,
                        uint8_t command, int32_t size, uint8_t *data);

/** @} */

/**
 * @defgroup path Switch paths
 * @brief Opening and closing of PCA9548 channels, one write to each switch. They take no lock.
 * @{
 */

/**
 * @brief Opens the path to a device: the upstream switch, then the near switch.
 * @param eclient the device
 * @return 0 when the path is open or there is none; -1 on any failure. What was opened before a
 * failure stays open.
 */
int32_t SelectSwitch(const ei2c_client *eclient);

/**
 * @brief Closes all channels of the near switch, then of the upstream switch; always tries both.
 * @param eclient the device
 * @return 0 without a switch; else the result of the last close, 1 on success.
 */
int32_t DeselectSwitch(const ei2c_client *eclient);

/**
 * @brief Reads the control register of the near switch.
 * @param eclient the device
 * @param val     receives the register
 * @return 1 with the register in @p val, or negative.
 */
int32_t readSwitchStatus(const ei2c_client *eclient, uint8_t *val);

/**
 * @brief Opens exactly one channel, 0 to 7.
 * @param swi     the switch
 * @param channel the channel, 0 to 7
 * @return 1; ::QELI2C_NO_DEVICE_FILE for a higher channel; or negative.
 */
int32_t ui2c_swi_select(ui2c_switch *swi, uint32_t channel);

/**
 * @brief Closes all channels, whatever @p channel says.
 * @param swi     the switch
 * @param channel not used
 * @return 1, or negative.
 */
int32_t ui2c_swi_deselect(ui2c_switch *swi, uint32_t channel);

/**
 * @brief Reads the control register: bit n set means channel n is open.
 * @param swi the switch
 * @param val receives the register
 * @return 1, or negative.
 */
int32_t ui2c_swi_status(ui2c_switch *swi, uint8_t *val);

/** @} */

/**
 * @defgroup locked Locked transfers
 * @brief The bus is taken, the path opened, the transfer done, the path closed and the bus released
 * by the call.
 * @{
 */

/**
 * @brief One combined transfer, at most four tries.
 * @param eclient the device
 * @param msgs    the messages; each carries its address
 * @param num     how many, at most 42
 * @return messages done by the last transfer, or its negative result; -1 when no try reached the
 * device
 */
int32_t ei2c_rdwr_xfer(const ei2c_client *eclient, struct i2c_msg *msgs, uint32_t num);

/**
 * @brief Two combined transfers back to back under one hold of the bus and of the path, at most
 * four tries of the pair.
 * @param eclient the device
 * @param msgs    two message arrays
 * @param num     their two lengths
 * @return the second transfer's messages, or the negative result of the one that failed
 */
int32_t ei2c_rdwr_mxfer(const ei2c_client *eclient, struct i2c_msg **msgs, const uint32_t *num);

/**
 * @brief ei2c_rdwr_xfer() with exactly one try.
 * @param eclient the device
 * @param msgs    the messages; each carries its address
 * @param num     how many, at most 42
 * @return -1 also when the path could not be opened.
 */
int32_t ei2c_rdwr_xfer_without_retry(const ei2c_client *eclient, struct i2c_msg *msgs,
                                     uint32_t num);

/**
 * @brief One SMBus transaction, at most four tries.
 * @param eclient    the device; its `flags` turn packet error checking on
 * @param read_write 1 read, 0 write
 * @param command    command code, 0 to 255
 * @param size       `I2C_SMBUS_QUICK` to `I2C_SMBUS_I2C_BLOCK_DATA`
 * @param data       null, or ::QELI2C_SMBUS_AREA bytes, see ui2c_smbus_xfer()
 * @return 0, or negative
 */
int32_t ei2c_smbus_xfer(const ei2c_client *eclient, uint32_t read_write, uint32_t command,
                        uint32_t size, uint8_t *data);

/**
 * @brief One SMBus transaction, then, when it was a write and @p write_only is 0, the read of the
 * MCTP response. Takes no lock, opens no path, does not retry. The response is read also after a
 * failed write.
 * @param eclient    the device; `pcie_name` is printed on failure
 * @param fd         descriptor the response is read from
 * @param read_write,command,size,data as for ei2c_smbus_xfer()
 * @param read_buf   receives the response; how much it must hold is the platform's matter, 256
 * bytes on the host
 * @param read_len   receives its length; 0 when none was read
 * @param write_only not 0: read no response
 * @return bytes of the response or the read's negative result; the transaction's result when none
 * was read
 */
int32_t ei2c_smbus_xfer_wtrd(const ei2c_client *eclient, int32_t fd, uint32_t read_write,
                             uint32_t command, uint32_t size, uint8_t *data, uint8_t *read_buf,
                             uint32_t *read_len, int32_t write_only);

/**
 * @brief Reads an MCTP response. Takes no lock.
 * @param eclient  the device
 * @param fd       descriptor the response is read from
 * @param read_buf receives the response, as ei2c_smbus_xfer_wtrd()
 * @param read_len receives its length
 * @return its length (above 0), or 0 or negative with `*read_len` 0.
 */
int32_t qel_ei2c_smbus_xfer_read(const ei2c_client *eclient, int32_t fd, uint8_t *read_buf,
                                 uint32_t *read_len);

/** @} */

/**
 * @defgroup hold Bus holds
 * @brief A bus held across several calls. A taking call that succeeds hands out the descriptor and
 * the semaphore id; they go back to the matching releasing call, once, from the same process. While
 * a bus is held its holder must use no locked call on it: that would wait for the holder itself. A
 * negative result of a taking call holds nothing. Buses above 65534 give -1.
 * @{
 */

/**
 * @brief Takes the bus, touching no switch.
 * @param eclient   any device of the bus
 * @param pfd       receives the bus's descriptor, not to be closed
 * @param psdwSemId receives the semaphore id
 * @return 0; -1 null argument or no record; ::QELI2C_NO_DEVICE_FILE; -2 semaphore not taken; -4
 * file lock not taken; -3 file lock not taken and the semaphore could not be released
 */
int32_t ei2c_smbus_lock_adapter(const ei2c_client *eclient, int32_t *pfd, int32_t *psdwSemId);

/**
 * @brief Releases a bus taken by ei2c_smbus_lock_adapter().
 * @param eclient  the device given when the bus was taken
 * @param fd       the descriptor handed out
 * @param sdwSemId the semaphore id handed out
 * @return negative when the semaphore was not released.
 */
int32_t ei2c_smbus_unlock_adapter(const ei2c_client *eclient, int32_t fd, int32_t sdwSemId);

/**
 * @brief Takes the bus and opens the path to the device, which stays open until the release; at
 * most four attempts.
 * @param eclient   the device whose path is opened
 * @param pfd       receives the bus's descriptor, not to be closed
 * @param psdwSemId receives the semaphore id
 * @return 0 or more; as ei2c_smbus_lock_adapter(); -5 path not opened, bus released; -3 also when
 * that release failed
 */
int32_t ei2c_smbus_select_switch(const ei2c_client *eclient, int32_t *pfd, int32_t *psdwSemId);

/**
 * @brief Closes the path, at most four attempts, and releases the bus in any case.
 * @param eclient  the device given when the bus was taken
 * @param fd       the descriptor handed out
 * @param sdwSemId the semaphore id handed out
 * @return the result of the release
 */
int32_t ei2c_smbus_deselect_switch(const ei2c_client *eclient, int32_t fd, int32_t sdwSemId);

/**
 * @brief ei2c_smbus_xfer() without taking or releasing the bus; the path is opened and closed
 * around each try.
 * @param eclient    any device of a held bus
 * @param read_write 1 read, 0 write
 * @param command    command code, 0 to 255
 * @param size       as for ei2c_smbus_xfer()
 * @param data       as for ei2c_smbus_xfer()
 * @return 0, or negative
 */
int32_t ei2c_smbus_xfer_without_lock(const ei2c_client *eclient, uint32_t read_write,
                                     uint32_t command, uint32_t size, uint8_t *data);

/** @} */

/**
 * @defgroup smbus SMBus commands
 * @brief The commands of the SMBus specification on a device. Each is one ei2c_smbus_xfer() unless
 * it says otherwise, with its results. Blocks sent are cut to 253 bytes; the kernel refuses more
 * than 32.
 * @{
 */

/**
 * @brief Receive byte.
 * @param eclient the device
 * @param value   receives the byte
 * @return 0, or negative
 */
int32_t ei2c_smbus_read_byte(const ei2c_client *eclient, uint8_t *value);

/**
 * @brief Send byte.
 * @param eclient the device
 * @param value   the byte
 * @return 0, or negative
 */
int32_t ei2c_smbus_write_byte(const ei2c_client *eclient, uint8_t value);

/**
 * @brief Read byte.
 * @param eclient the device
 * @param command command code
 * @param value   receives the byte
 * @return 0, or negative
 */
int32_t ei2c_smbus_read_byte_data(const ei2c_client *eclient, uint8_t command, uint8_t *value);

/**
 * @brief Write byte.
 * @param eclient the device
 * @param command command code
 * @param value   the byte
 * @return 0, or negative
 */
int32_t ei2c_smbus_write_byte_data(const ei2c_client *eclient, uint8_t command, uint8_t value);

/**
 * @brief Read word; the low byte comes first on the wire.
 * @param eclient the device
 * @param command command code
 * @param value   receives the word
 * @return 0, or negative
 */
int32_t ei2c_smbus_read_word_data(const ei2c_client *eclient, uint8_t command, uint16_t *value);

/**
 * @brief Write word; the low byte goes first on the wire.
 * @param eclient the device
 * @param command command code
 * @param value   the word
 * @return 0, or negative
 */
int32_t ei2c_smbus_write_word_data(const ei2c_client *eclient, uint8_t command, uint16_t value);

/**
 * @brief Block read.
 * @param eclient the device
 * @param command command code
 * @param len     receives the number of bytes, 0 to 32
 * @param values  receives them; 32 bytes are always enough
 * @return -1 also for a count above 32
 */
int32_t ei2c_smbus_read_block_data(const ei2c_client *eclient, uint8_t command, uint8_t *len,
                                   uint8_t *values);

/**
 * @brief Block read that hands over the device's count as well.
 * @param eclient the device
 * @param command command code
 * @param len     most data bytes wanted
 * @param values  receives the device's count byte, then at most @p len data bytes: @p len + 1 bytes
 * @return 0, or negative
 */
int32_t qel_ei2c_smbus_read_block_data(const ei2c_client *eclient, uint8_t command, uint32_t len,
                                       uint8_t *values);

/**
 * @brief Block write of @p length bytes.
 * @param eclient the device
 * @param command command code
 * @param length  how many bytes, at most 32
 * @param values  the bytes
 * @return 0, or negative
 */
int32_t ei2c_smbus_write_block_data(const ei2c_client *eclient, uint8_t command, uint32_t length,
                                    const uint8_t *values);

/**
 * @brief Block write, then the MCTP response, as ei2c_smbus_xfer_wtrd(). Takes no lock.
 * @param eclient    the device
 * @param fd         descriptor the response is read from
 * @param command    command code
 * @param write_len  bytes of the block
 * @param write_buf  the block
 * @param read_buf   receives the response
 * @param read_len   receives its length
 * @param write_only not 0: read no response
 * @return as ei2c_smbus_xfer_wtrd()
 */
int32_t ei2c_smbus_wtrd_block_data(const ei2c_client *eclient, int32_t fd, uint8_t command,
                                   uint32_t write_len, const uint8_t *write_buf, uint8_t *read_buf,
                                   uint32_t *read_len, int32_t write_only);

/**
 * @brief Block write - block read process call.
 * @param eclient   the device
 * @param command   command code
 * @param write_buf,write_len the block sent
 * @param read_buf  receives the block that comes back; 32 bytes are always enough
 * @param read_len  receives its length, 0 to 32
 * @return -1 also for a count above 32
 */
int32_t ei2c_smbus_read_block_proc_call_data(const ei2c_client *eclient, uint8_t command,
                                             const uint8_t *write_buf, uint32_t write_len,
                                             uint8_t *read_buf, uint8_t *read_len);

/**
 * @brief A second name of qel_ei2c_smbus_xfer_read().
 * @param eclient  the device
 * @param fd       descriptor the response is read from
 * @param read_buf receives the response
 * @param read_len receives its length
 * @return as qel_ei2c_smbus_xfer_read()
 */
int32_t qel_ei2c_smbus_mctp_read_block_data(const ei2c_client *eclient, int32_t fd,
                                            uint8_t *read_buf, uint32_t *read_len);

/**
 * @brief Plain I2C write then read in one combined transfer, ei2c_rdwr_xfer() with two messages.
 * The client's `flags` go into both messages. Both lengths are cut to 253.
 * @param eclient   the device
 * @param write_len bytes to write
 * @param write_buf the bytes to write
 * @param read_len  bytes to read
 * @param read_buf  receives the bytes read
 * @return 2, or negative
 */
int32_t ei2c_smbus_read_i2c_block_data(const ei2c_client *eclient, uint32_t write_len,
                                       const uint8_t *write_buf, uint32_t read_len,
                                       uint8_t *read_buf);

/**
 * @brief I2C block write: command code, then @p length bytes without a count on the wire.
 * @param eclient the device
 * @param command command code
 * @param length  how many bytes, at most 32
 * @param values  the bytes
 * @return 0, or negative
 */
int32_t ei2c_smbus_write_i2c_block_data(const ei2c_client *eclient, uint8_t command,
                                        uint32_t length, const uint8_t *values);

/**
 * @brief ei2c_smbus_read_byte_data() for a caller who holds the bus.
 * @param eclient the device
 * @param command command code
 * @param value   receives the byte
 * @return 0, or negative
 */
int32_t ei2c_smbus_read_byte_data_without_lock(const ei2c_client *eclient, uint8_t command,
                                               uint8_t *value);

/**
 * @brief ei2c_smbus_write_byte_data() for a caller who holds the bus.
 * @param eclient the device
 * @param command command code
 * @param value   the byte
 * @return 0, or negative
 */
int32_t ei2c_smbus_write_byte_data_without_lock(const ei2c_client *eclient, uint8_t command,
                                                uint8_t value);

/** @} */

/**
 * @defgroup offset Offset-addressed access
 * @brief Devices whose internal address, the offset, is sent ahead of the data as @p offsetlen
 * bytes, most significant first; bytes beyond four are 0. One ei2c_rdwr_xfer() each.
 * @{
 */

/**
 * @brief Sends the offset and reads, in one combined transfer; a plain read when @p offsetlen is 0.
 * @param eclient   the device
 * @param datalen   bytes to read, below 65536
 * @param data      receives them
 * @param offsetlen bytes of the offset, below 65536
 * @param offset    the offset
 * @return messages done, 2 or 1; negative on failure; 0 when there was no memory
 */
int32_t i2cRead(const ei2c_client *eclient, uint32_t datalen, uint8_t *data, uint32_t offsetlen,
                uint32_t offset);

/**
 * @brief Sends the offset and the data in one message.
 * @param eclient   the device
 * @param datalen   bytes to write; with @p offsetlen at most 65534
 * @param data      the bytes
 * @param offsetlen bytes of the offset
 * @param offset    the offset
 * @return 1; negative on failure; 0 when there was no memory
 */
int32_t i2cWrite(const ei2c_client *eclient, uint32_t datalen, const uint8_t *data,
                 uint32_t offsetlen, uint32_t offset);

/** @} */

/**
 * @defgroup eeprom EEPROMs
 * @brief EEPROMs of the AT24C512 class: two address bytes, transfers within 32-byte pages. Offsets
 * are 0 to 0x7FFFFFDF and wrap at 65536 on the wire, lengths 0 or more; anything else gives -1 and
 * no transfer. A pause follows each transfer, also a failed one: 25 ms after a write, 5 ms after a
 * read. Whole operations of all processes exclude each other by one semaphore (key 0x3001); the bus
 * is free between their pages.
 * @{
 */

/**
 * @brief Writes at most to the end of the page, without the EEPROM semaphore.
 * @param eclient the EEPROM
 * @param offset  where it begins
 * @param data    the bytes
 * @param len     how many
 * @return bytes written; -1 for bad arguments; the transfer's result when that was not 1
 */
int32_t ee_eeprom_page_write(const ei2c_client *eclient, int32_t offset, const uint8_t *data,
                             int32_t len);

/**
 * @brief Reads at most to the end of the page, without the EEPROM semaphore.
 * @param eclient the EEPROM
 * @param offset  where it begins
 * @param data    receives the bytes
 * @param len     how many
 * @return bytes read; -1 for bad arguments; the transfer's result when that was not 2
 */
int32_t ee_eeprom_page_read(const ei2c_client *eclient, int32_t offset, uint8_t *data, int32_t len);

/**
 * @brief Writes @p len bytes at @p offset; blocks for at least 25 ms per page.
 * @param eclient the EEPROM
 * @param offset  where it begins
 * @param data    the bytes
 * @param len     how many
 * @return @p len; less when a later page failed; the first page's result when that failed; 0
 * without the semaphore
 */
int32_t eeprom_write(const ei2c_client *eclient, int32_t offset, const uint8_t *data, int32_t len);

/**
 * @brief Reads @p len bytes at @p offset; blocks for at least 5 ms per page.
 * @param eclient the EEPROM
 * @param offset  where it begins
 * @param data    receives the bytes
 * @param len     how many
 * @return as eeprom_write()
 */
int32_t eeprom_read(const ei2c_client *eclient, int32_t offset, uint8_t *data, int32_t len);

/**
 * @brief A second name of eeprom_read().
 * @param eclient the EEPROM
 * @param offset  where it begins
 * @param buf     receives the bytes
 * @param len     how many
 * @return as eeprom_read()
 */
int32_t ei2c_eeprom_read(const ei2c_client *eclient, int32_t offset, uint8_t *buf, int32_t len);

/**
 * @brief A second name of eeprom_write().
 * @param eclient the EEPROM
 * @param offset  where it begins
 * @param buf     the bytes
 * @param len     how many
 * @return as eeprom_write()
 */
int32_t ei2c_eeprom_write(const ei2c_client *eclient, int32_t offset, const uint8_t *buf,
                          int32_t len);

/**
 * @brief eeprom_read(), up to three times until the result is positive, with a second's pause after
 * each failure.
 * @param eclient the EEPROM
 * @param offset  where it begins
 * @param buf     receives the bytes
 * @param len     how many
 * @return the last result of eeprom_read()
 */
int32_t ei2c_eeprom_read_retry(const ei2c_client *eclient, int32_t offset, uint8_t *buf,
                               int32_t len);

/**
 * @brief eeprom_write(), up to three times until the result is positive, with a second's pause
 * after each failure.
 * @param eclient the EEPROM
 * @param offset  where it begins
 * @param buf     the bytes
 * @param len     how many
 * @return the last result of eeprom_write()
 */
int32_t ei2c_eeprom_write_retry(const ei2c_client *eclient, int32_t offset, const uint8_t *buf,
                                int32_t len);
/** @brief The id of the EEPROM semaphore, created at first use. @return negative when it cannot be
 * had. */
int32_t ee_eeprom_semid(void);
/** @brief Takes the EEPROM semaphore, before any bus. @return its id, or negative. */
int32_t ee_lock_eeprom(void);
/** @brief Releases it. @return negative on failure. */
int32_t ee_unlock_eeprom(void);

/** @} */

/**
 * @defgroup bridge Bridge hold
 * @brief A bus held with the path to a bridge open. The owner table is not written. Rules as for
 * bus holds.
 * @{
 */

/**
 * @brief Takes the bus and tries at most four times to open the path.
 * @param eclient   the bridge
 * @param psdwSemId receives the semaphore id, negative when it was not taken
 * @param pfd       receives the bus's descriptor, negative when there is none; both may be written
 * by a call that fails
 * @return 0 when the bus is held, whether or not the path is open; -1 with nothing held
 */
int32_t lockAndSelectBridge_Ridgeback(const ei2c_client *eclient, int32_t *psdwSemId, int32_t *pfd);

/**
 * @brief Closes the path, four times over, and releases the bus.
 * @param eclient   the bridge
 * @param psdwSemId the semaphore id handed out
 * @param pfd       the descriptor handed out
 * @return 0; -1 for a null argument or no record.
 */
int32_t unlockAndDeselectBridge_Ridgeback(const ei2c_client *eclient, int32_t *psdwSemId,
                                          int32_t *pfd);

/** @} */

/**
 * @defgroup status Bus controllers
 * @brief What the controller of a bus says of it. Buses 0 to 15; needs `/dev/mem`.
 * @{
 */

/**
 * @brief Bit 16 of a bus controller's status register, at physical 0x1E78A088 + 0x80 x bus; no bus
 * traffic, no lock.
 * @param busNo  0 to 15
 * @param status receives 0 or 1
 * @return 0, or -1
 */
int32_t i2c_bus_status_check(uint32_t busNo, uint8_t *status);

/** @} */

/**
 * @defgroup pca9535 PCA9535 GPIO expander
 * @brief 16 pins; pin p is bit p. Pins a device does not have change nothing and read as 0. A
 * change reads a register and writes it back, taking the bus for each: callers who change pins of
 * one expander at the same time must keep each other out. Results are those of the last SMBus call,
 * 0 on success. Registers: NXP PCA9535 data sheet.
 * @{
 */

/**
 * @brief Makes a pin an input.
 * @param eclient the expander
 * @param pin     pin, 0 to 15
 * @return 0, or the negative result of the SMBus call that failed
 */
int32_t pca9535_gpio_direction_input(const ei2c_client *eclient, uint32_t pin);

/**
 * @brief Sets a pin's level, then makes it an output.
 * @param eclient the expander
 * @param pin     pin, 0 to 15
 * @param value   level: 0 low, other values high
 * @return 0, or the negative result of the SMBus call that failed
 */
int32_t pca9535_gpio_direction_output(const ei2c_client *eclient, uint32_t pin, int value);

/**
 * @brief Reads a pin's level, 0 or 1.
 * @param eclient the expander
 * @param pin     pin, 0 to 15
 * @param val     receives the level
 * @return also 0 when the read failed, with @p val unchanged.
 */
int32_t pca9535_gpio_get_value(const ei2c_client *eclient, uint32_t pin, uint32_t *val);

/**
 * @brief Sets a pin's output level; its direction stays.
 * @param eclient the expander
 * @param pin     pin, 0 to 15
 * @param value   level: 0 low, other values high
 * @return 0, or the negative result of the SMBus call that failed
 */
int32_t pca9535_gpio_set_value(const ei2c_client *eclient, uint32_t pin, int value);

/**
 * @brief Makes the masked pins inputs.
 * @param eclient the expander
 * @param mask    pins meant, bit p for pin p
 * @return 0, or the negative result of the SMBus call that failed
 */
int32_t pca9535_gpio_word_direction_input(const ei2c_client *eclient, uint16_t mask);

/**
 * @brief Sets the masked pins' levels, then makes them outputs.
 * @param eclient the expander
 * @param mask    pins meant, bit p for pin p
 * @param value   levels, bit p for pin p
 * @return 0, or the negative result of the SMBus call that failed
 */
int32_t pca9535_gpio_word_direction_output(const ei2c_client *eclient, uint16_t mask,
                                           uint16_t value);

/**
 * @brief Reads the masked pins' levels, in place.
 * @param eclient the expander
 * @param mask    pins meant, bit p for pin p
 * @param val     receives the levels at the masked bits, 0 at others
 * @return negative when the read failed.
 */
int32_t pca9535_gpio_word_get_value(const ei2c_client *eclient, uint16_t mask, uint32_t *val);

/**
 * @brief Sets the masked pins' output levels; their direction stays.
 * @param eclient the expander
 * @param mask    pins meant, bit p for pin p
 * @param value   levels, bit p for pin p
 * @return 0, or the negative result of the SMBus call that failed
 */
int32_t pca9535_gpio_word_set_value(const ei2c_client *eclient, uint16_t mask, uint16_t value);

/**
 * @brief Reads the masked bits of the output register.
 * @param client the expander
 * @param mask   pins meant, bit p for pin p
 * @param val    receives the masked bits
 * @return also 0 when the read failed, @p val unchanged.
 */
int32_t pca9535_gpio_word_get_output_value(const ei2c_client *client, uint16_t mask, uint32_t *val);

/**
 * @brief Makes the masked pins inputs and reads them.
 * @param eclient the expander
 * @param mask    pins meant, bit p for pin p
 * @param val     receives the levels at the masked bits, 0 at others
 * @return 0, or the negative result of the SMBus call that failed
 */
int32_t ei2c_pca9535_get_word_value(const ei2c_client *eclient, uint16_t mask, uint32_t *val);

/**
 * @brief A second name of pca9535_gpio_word_set_value().
 * @param eclient the expander
 * @param mask    pins meant, bit p for pin p
 * @param value   levels, bit p for pin p
 * @return 0, or the negative result of the SMBus call that failed
 */
int32_t ei2c_pca9535_set_word_value(const ei2c_client *eclient, uint16_t mask, uint16_t value);

/**
 * @brief Makes a pin an input and reads it.
 * @param eclient the expander
 * @param pin     pin, 0 to 15
 * @param val     receives the level
 * @return 0, or the negative result of making it an input; also 0 when the read failed, @p val
 * unchanged
 */
int32_t ei2c_pca9535_get_value(const ei2c_client *eclient, uint32_t pin, uint32_t *val);

/**
 * @brief A second name of pca9535_gpio_direction_output().
 * @param eclient the expander
 * @param pin     pin, 0 to 15
 * @param value   level: 0 low, other values high
 * @return 0, or the negative result of the SMBus call that failed
 */
int32_t ei2c_pca9535_set_value(const ei2c_client *eclient, uint32_t pin, int value);

/**
 * @brief Reads a pin's output bit in place: 0 or 1 << pin; always 0 for pins 15 and 16.
 * @param eclient the expander
 * @param pin     pin, 0 to 15
 * @param val     receives the bit
 * @return -1 above pin 16.
 */
int32_t ei2c_pca9535_get_output_value(const ei2c_client *eclient, uint32_t pin, uint32_t *val);

/** @} */

/**
 * @defgroup pca9554 PCA9554 GPIO expander
 * @brief 8 pins; as the PCA9535 otherwise. Registers: NXP PCA9554 data sheet.
 * @{
 */

/**
 * @brief Makes a pin an input.
 * @param eclient the expander
 * @param pin     pin, 0 to 7
 * @return 0, or the negative result of the SMBus call that failed
 */
int32_t pca9554_gpio_direction_input(const ei2c_client *eclient, uint32_t pin);

/**
 * @brief Sets a pin's level, then makes it an output.
 * @param eclient the expander
 * @param pin     pin, 0 to 7
 * @param value   level: 0 low, other values high
 * @return 0, or the negative result of the SMBus call that failed
 */
int32_t pca9554_gpio_direction_output(const ei2c_client *eclient, uint32_t pin, int value);

/**
 * @brief Reads a pin's level, 0 or 1.
 * @param eclient the expander
 * @param pin     pin, 0 to 7
 * @param val     receives the level
 * @return also 0 when the read failed, with @p val unchanged.
 */
int32_t pca9554_gpio_get_value(const ei2c_client *eclient, uint32_t pin, uint32_t *val);

/**
 * @brief Sets a pin's output level; its direction stays.
 * @param eclient the expander
 * @param pin     pin, 0 to 7
 * @param value   level: 0 low, other values high
 * @return 0, or the negative result of the SMBus call that failed
 */
int32_t pca9554_gpio_set_value(const ei2c_client *eclient, uint32_t pin, int value);

/**
 * @brief Makes the masked pins inputs.
 * @param eclient the expander
 * @param mask    pins meant, bit p for pin p
 * @return 0, or the negative result of the SMBus call that failed
 */
int32_t pca9554_gpio_byte_direction_input(const ei2c_client *eclient, uint8_t mask);

/**
 * @brief Sets the masked pins' levels, then makes them outputs.
 * @param eclient the expander
 * @param mask    pins meant, bit p for pin p
 * @param value   levels, bit p for pin p
 * @return 0, or the negative result of the SMBus call that failed
 */
int32_t pca9554_gpio_byte_direction_output(const ei2c_client *eclient, uint8_t mask, uint8_t value);

/**
 * @brief Reads the masked pins' levels, in place.
 * @param eclient the expander
 * @param mask    pins meant, bit p for pin p
 * @param val     receives the levels at the masked bits, 0 at others
 * @return also 0 when the read failed, with @p val unchanged.
 */
int32_t pca9554_gpio_byte_get_value(const ei2c_client *eclient, uint8_t mask, uint8_t *val);

/**
 * @brief Sets the masked pins' output levels; their direction stays.
 * @param eclient the expander
 * @param mask    pins meant, bit p for pin p
 * @param value   levels, bit p for pin p
 * @return 0, or the negative result of the SMBus call that failed
 */
int32_t pca9554_gpio_byte_set_value(const ei2c_client *eclient, uint8_t mask, uint8_t value);

/** @} */

/**
 * @defgroup tpa626 TPA626 power monitor
 * @brief Power and bus voltage. The bus is taken for each register access. All calls: 0 on success,
 * -1 on failure with the value untouched.
 * @{
 */

/** @brief Describes a monitor and its scaling; 60 bytes. */
typedef struct tpa626_info {
    ei2c_client client;    /**< The monitor. */
    uint16_t wConfig;      /**< Configuration word, low byte first on the wire. */
    uint16_t wCalibration; /**< Calibration word, low byte first on the wire. */
    uint32_t dwRsv1;       /**< Not read. */
    float fPowerCoef1;     /**< Power is raw x fPowerCoef1 x fPowerCoef2 / 1000. */
    float fVoltCoef1;      /**< Voltage is raw x fVoltCoef1 x fVoltCoef2 / 1000. */
    uint32_t dwRsv2;       /**< Not read. */
    float fPowerCoef2;     /**< See fPowerCoef1. */
    float fVoltCoef2;      /**< See fVoltCoef1. */
} tpa626_info;

/**
 * @brief Power in watts with a preset calibration; failed writes of the configuration do not fail
 * the call.
 * @param i2c_client     the monitor
 * @param ucCalibSel     preset 1, 2 or 3; any other value is the default one
 * @param pfOutReadValue receives raw x 0.025
 * @return 0, or -1
 */
int32_t TPA626_GetPower(const ei2c_client *i2c_client, uint8_t ucCalibSel, float *pfOutReadValue);

/**
 * @brief Bus voltage in volts, 1.25 mV per count; nothing is written to the monitor.
 * @param i2c_client     the monitor
 * @param pfOutReadValue receives volts
 * @return 0, or -1
 */
int32_t TPA626_GetVolt(const ei2c_client *i2c_client, float *pfOutReadValue);

/**
 * @brief Power by a description; configuration and calibration are written first.
 * @param info           the monitor and its scaling
 * @param pfOutReadValue receives the power
 * @return 0, or -1
 */
int32_t TPA626_GetPowerByInfo(const tpa626_info *info, float *pfOutReadValue);

/**
 * @brief Bus voltage by a description; configuration and calibration are written first.
 * @param info           the monitor and its scaling
 * @param pfOutReadValue receives the voltage
 * @return 0, or -1
 */
int32_t TPA626_GetVoltByInfo(const tpa626_info *info, float *pfOutReadValue);

/** @} */

/**
 * @defgroup retimer Retimers
 * @brief Raw block transfers. All calls: 0 on success, -1 on failure.
 * @{
 */

/** @brief A retimer and the switches in front of it, in bytes. */
typedef struct retimer_i2c_dev {
    uint8_t ucBus;       /**< Bus number. */
    uint8_t ucAddr;      /**< 7-bit slave address. */
    uint8_t aucRsv[4];   /**< Not read. */
    uint8_t ucSwiValid;  /**< 1: the fields below hold; any other value: no switch. */
    uint8_t ucSwiAddr;   /**< Address of the switch in front of the device. */
    uint8_t ucSwiChnl;   /**< Its channel. */
    uint8_t ucUpSwiAddr; /**< Address of the switch in front of that one, 0 for none. */
    uint8_t ucUpSwiChnl; /**< Its channel. */
} retimer_i2c_dev;

/**
 * @brief Sends @p dwDataLen bytes (at most 65535) as they are.
 * @param client    the retimer
 * @param dwDataLen how many bytes
 * @param pucData   the bytes
 * @return 0, or -1
 */
int32_t Retimer_I2CWriteBlockData(const ei2c_client *client, uint32_t dwDataLen,
                                  const uint8_t *pucData);

/**
 * @brief Sends the register byte and reads @p dwDataLen bytes, of which the first 255 are handed
 * out. The length goes out modulo 65536.
 * @param client       the retimer
 * @param ucOffsetAddr register byte
 * @param dwDataLen    how many bytes
 * @param pucReaddata  receives the bytes: room for @p dwDataLen, 255 are enough
 * @return 0, or -1
 */
int32_t Retimer_I2CReadBlockData(const ei2c_client *client, uint8_t ucOffsetAddr,
                                 uint32_t dwDataLen, uint8_t *pucReaddata);

/**
 * @brief Retimer_I2CWriteBlockData() by a byte record.
 * @param device  the retimer
 * @param datalen how many bytes
 * @param pucData the bytes
 * @return 0, or -1
 */
int32_t Retimer_I2CWrite(const retimer_i2c_dev *device, uint32_t datalen, const uint8_t *pucData);

/**
 * @brief Retimer_I2CReadBlockData() by a byte record; `pucBuf[0]` is the register byte, then the
 * data replace it.
 * @param device  the retimer
 * @param datalen how many bytes
 * @param pucBuf  register byte, then receives the bytes
 * @return 0, or -1
 */
int32_t Retimer_I2CRead(const retimer_i2c_dev *device, uint32_t datalen, uint8_t *pucBuf);

/** @} */

/**
 * @defgroup epld Board logic
 * @brief Register access to EPLDs and FPGAs, and which vendor's EPLD answers at an address. Offsets
 * go out most significant byte first; bytes beyond four are 0. Calls return 0 or -1 unless they say
 * otherwise.
 * @{
 */

/**
 * @brief Sends the offset and reads, in one combined transfer. On failure @p pucData holds what
 * arrived.
 * @param client       the device
 * @param dwOffsetAddr the offset
 * @param ucOffsetLen  bytes of the offset
 * @param dwDataLen    bytes of data
 * @param pucData      receives the bytes
 * @return 0, or -1
 */
int32_t i2c_read_multi_para(const ei2c_client *client, uint32_t dwOffsetAddr, uint8_t ucOffsetLen,
                            uint32_t dwDataLen, uint8_t *pucData);

/**
 * @brief Sends the offset and the data in one message of at most 65535 bytes.
 * @param client       the device
 * @param dwOffsetAddr the offset
 * @param ucOffsetLen  bytes of the offset
 * @param dwDataLen    bytes of data
 * @param pucData      the bytes
 * @return 0, or -1
 */
int32_t i2c_write_multi_para(const ei2c_client *client, uint32_t dwOffsetAddr, uint8_t ucOffsetLen,
                             uint32_t dwDataLen, const uint8_t *pucData);

/**
 * @brief Writes at one offset, then reads at another, as two transfers under one hold of the bus.
 * @param client        the device
 * @param pdwOffsetAddr two offsets: of the write, of the read
 * @param ucOffsetLen   bytes of each offset
 * @param pdwDataLen    two lengths: to write, to read
 * @param pucWriteData  the bytes to write
 * @param pucReadData   receives the bytes read
 * @return 0, or -1
 */
int32_t i2c_write_and_read_multi_para(const ei2c_client *client, const uint32_t *pdwOffsetAddr,
                                      uint8_t ucOffsetLen, const uint32_t *pdwDataLen,
                                      const uint8_t *pucWriteData, uint8_t *pucReadData);

/**
 * @brief Sends the command byte and the offset, and reads, in one combined transfer.
 * @param client       the device
 * @param ucReg        command byte
 * @param dwOffsetAddr the offset
 * @param dwOffsetLen  bytes of the offset
 * @param dwDataLen    bytes of data
 * @param pucData      receives the bytes
 * @return 0, or -1; 0 with nothing sent when the command and the offset make a multiple of 65536
 * bytes. @p dwDataLen is sent modulo 65536.
 */
int32_t pango_i2c_read_multi_para(const ei2c_client *client, uint8_t ucReg, uint32_t dwOffsetAddr,
                                  uint32_t dwOffsetLen, uint32_t dwDataLen, uint8_t *pucData);

/**
 * @brief Sends the command byte, the offset and the data, zeros for a null @p pucData, in one
 * message.
 * @param client       the device
 * @param ucReg        command byte
 * @param dwOffsetAddr the offset
 * @param dwOffsetLen  bytes of the offset
 * @param dwDataLen    bytes of data
 * @param pucData      the bytes
 * @return 0, or -1
 */
int32_t pango_i2c_write_multi_para(const ei2c_client *client, uint8_t ucReg, uint32_t dwOffsetAddr,
                                   uint32_t dwOffsetLen, uint32_t dwDataLen,
                                   const uint8_t *pucData);

/**
 * @brief One try of a command byte and a value, with @p bRead followed by a one-byte read. A
 * refusal is success.
 * @param client     the device
 * @param ucReg      command byte
 * @param dwValue    the value
 * @param dwValueLen bytes of the value
 * @param bRead      not 0: read one byte, which is dropped
 * @return 0, or -1
 */
int32_t pango_i2c_write_or_read_with_nack(const ei2c_client *client, uint8_t ucReg,
                                          uint32_t dwValue, uint32_t dwValueLen, int32_t bRead);

/**
 * @brief Asks for the identification of each vendor's EPLD until one answers.
 * @param ptEpldI2cClient the device
 * @param pucData         4 bytes, receives the identification
 * @return 3 Anlogic, 2 Lattice, 1 Pango, -1 none
 */
int32_t epld_i2c_read_deviceId(const ei2c_client *ptEpldI2cClient, uint8_t *pucData);

/**
 * @brief Identification of an Anlogic EF2, then of an EF3.
 * @param ptEpldI2cClient the device
 * @param pucData         4 bytes, receives the identification
 * @return 0, or -1
 */
int32_t epld_anlogic_read_deviceId(const ei2c_client *ptEpldI2cClient, uint8_t *pucData);

/**
 * @brief Identification of the SPI flash behind an Anlogic EF2; leaves its port in SPI mode.
 * @param ptEpldI2cClient the device
 * @param pucData         4 bytes, receives the identification
 * @return 0, or -1
 */
int32_t epld_anlogic_ef2_read_deviceId(const ei2c_client *ptEpldI2cClient, uint8_t *pucData);

/**
 * @brief Identification of an Anlogic EF3, in reading order.
 * @param ptEpldI2cClient the device
 * @param pucData         4 bytes, receives the identification
 * @return 0, or -1
 */
int32_t epld_anlogic_ef3_read_deviceId(const ei2c_client *ptEpldI2cClient, uint8_t *pucData);

/**
 * @brief Identification of a Lattice EPLD.
 * @param ptEpldI2cClient the device
 * @param pucData         4 bytes, receives the identification
 * @return 0, or -1
 */
int32_t epld_lattice_read_deviceId(const ei2c_client *ptEpldI2cClient, uint8_t *pucData);

/**
 * @brief Identification of a Pango EPLD: three bytes, bits in reading order, and a 0.
 * @param ptEpldI2cClient the device
 * @param pucData         4 bytes, receives the identification
 * @return 0, or -1
 */
int32_t epld_pango_read_deviceId(const ei2c_client *ptEpldI2cClient, uint8_t *pucData);

/**
 * @brief Four bytes as a word, the first one most significant.
 * @param pucData four bytes
 * @return the word; 0 for a null argument
 */
uint32_t BytesToDword(const uint8_t *pucData);

/**
 * @brief Reverses the order of the first @p n bytes.
 * @param pucData the bytes
 * @param n       how many
 */
void reverseArray(uint8_t *pucData, int32_t n);

/**
 * @brief Reads @p wLen bytes at a register of a subcard's EPLD.
 * @param client the device
 * @param ucReg  command byte
 * @param buf    receives the bytes
 * @param wLen   how many
 * @return 0, or -1
 */
int32_t epld_card_epld_read(const ei2c_client *client, uint8_t ucReg, uint8_t *buf, uint16_t wLen);

/**
 * @brief Always -1: there is no subcard EPLD in the table.
 * @return -1
 */
int32_t card_epld_read(void);

/**
 * @brief Number of subcard EPLDs in the table: 0.
 * @return 0
 */
uint32_t card_epld_cnt(void);

/**
 * @brief An entry of that table.
 * @param dwIndex index
 * @return null from card_epld_cnt() on.
 */
struct card_epld *card_epld_dev(uint32_t dwIndex);

/** @} */

#ifdef __GNUC__
#pragma GCC visibility pop
#endif
#ifdef __cplusplus
}
#endif

#endif
