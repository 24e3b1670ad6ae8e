// What the files of the bus access core share with each other.
#ifndef QELI2C_BUS_CORE_H
#define QELI2C_BUS_CORE_H

#include "bus/cancellation.h"
#include "bus/device_path.h"
#include "bus/report.h"
#include "qeli2c.h"

constexpr char kLogTag[] = "ui2c_ioctls";

// bus_lock (failed checks tell the name)
ui2c_adapter_data *__adapter_data(ui2c_adapter *adapter); // NOLINT(bugprone-reserved-identifier)

// switch_path
//
// Whether a switch line ends with the text of errno or with its number alone.
enum class ErrnoForm { number_and_text, number };

// Both give the result of the last switch written: negative when the path is not open, or not
// closed.
int32_t open_path(const ei2c_client &eclient, const DevicePath &path, ErrnoForm form);
int32_t close_path(const ei2c_client &eclient, const DevicePath &path);
// Closes one switch of the path.
int32_t close_switch(const ei2c_client &eclient, ui2c_switch *swi, uint32_t channel,
                     ErrnoForm form);

// locked_transfer
struct HeldBus {
    CancellationPutOff put_off;
    DevicePath path;
    int32_t fd = -1;
    int32_t semid = -1;
};

// What a failed taking of the bus says depends on the call.
enum class TakeLines { transfer, transfer_lock_at_runtime, hold, hold_with_errno_text };

enum : int32_t {
    take_held = 0,
    take_no_record = -1,
    take_no_semaphore = -2,
    take_not_released = -3, // no file lock, and the semaphore could not be given back
    take_no_file_lock = -4,
    take_no_path = -5,
};

// take_held, or one of the above or QELI2C_NO_DEVICE_FILE with nothing held.
int32_t take_bus(const ei2c_client &eclient, TakeLines lines, HeldBus &held);
// The result of releasing the semaphore. The caller puts off a cancellation of its thread.
int32_t release_bus(const ei2c_client &eclient, int32_t fd, int32_t semid);

// One transfer step of the retry loop, as plain data.
struct Transfer {
    enum class Kind { rdwr, rdwr_pair, smbus };
    Kind kind;
    struct {
        i2c_msg *messages;
        uint32_t count;
    } sets[2];
    struct {
        uint32_t read_write;
        uint32_t command;
        uint32_t size;
        uint8_t *data;
    } smbus;
};

constexpr int32_t kTryLimit = 4;

// The transfer step alone, on an open path.
int32_t transfer_once(const ei2c_client &eclient, const DevicePath &path, const Transfer &transfer);
// At most try_limit tries, each opening and closing the path; the result of the last transfer.
int32_t transfer_with_retries(const ei2c_client &eclient, const DevicePath &path,
                              const Transfer &transfer);
// The same on a bus taken for it.
int32_t locked_transfer(const ei2c_client &eclient, TakeLines lines, const Transfer &transfer);

#endif
