// The functions of libudev, of libmount and of the system that a test lets fail by their names.
#include <dlfcn.h>
#include <libmount/libmount.h>
#include <libudev.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>

#include "platform_calls.h"

#define NEXT(name) reinterpret_cast<decltype(&(name))>(dlsym(RTLD_NEXT, #name))
#define CALL(type, name, failure, parameters, arguments)                         \
    type name parameters {                                                       \
        return g_platform_calls.fails(#name) ? (failure) : NEXT(name) arguments; \
    }
// One that finds a text leaves an error behind all the same.
#define TEXT(name, parameters, arguments)                                                  \
    const char* name parameters {                                                          \
        const char* text = g_platform_calls.fails(#name) ? nullptr : NEXT(name) arguments; \
        return text != nullptr ? (errno = EACCES, text) : nullptr;                         \
    }

extern "C" {

CALL(udev*, udev_new, nullptr, (), ())
CALL(udev_device*, udev_device_new_from_devnum, nullptr,
     (struct udev * database, char type, dev_t number), (database, type, number))
CALL(udev_device*, udev_device_new_from_syspath, nullptr,
     (struct udev * database, const char* path), (database, path))
TEXT(udev_device_get_property_value, (udev_device * of, const char* key), (of, key))
TEXT(udev_device_get_sysattr_value, (udev_device * of, const char* key), (of, key))
TEXT(udev_device_get_devtype, (udev_device * of), (of))
CALL(int, udev_device_get_is_initialized, 0, (udev_device * of), (of))
CALL(udev_enumerate*, udev_enumerate_new, nullptr, (struct udev * database),
     ((g_platform_calls.on_look(), database)))
CALL(int, udev_enumerate_add_match_subsystem, -errno, (udev_enumerate * in, const char* name),
     (in, name))
CALL(int, udev_enumerate_scan_devices, -errno, (udev_enumerate * in), (in))
CALL(udev_list_entry*, udev_enumerate_get_list_entry, nullptr, (udev_enumerate * of), (of))
CALL(libmnt_table*, mnt_new_table, nullptr, (), ())
CALL(int, mnt_table_set_parser_errcb, -errno,
     (libmnt_table * of, int (*refuse)(libmnt_table*, const char*, int)), (of, refuse))
CALL(int, mnt_table_parse_stream, -errno, (libmnt_table * of, FILE* from, const char* name),
     (of, from, name))
CALL(int, mnt_table_get_nents, 0, (libmnt_table * of), (of))
CALL(const char*, mnt_fs_get_target, nullptr, (libmnt_fs * of), (of))
CALL(libmnt_iter*, mnt_new_iter, nullptr, (int direction), (direction))
CALL(libmnt_monitor*, mnt_new_monitor, nullptr, (), ())
CALL(int, mnt_monitor_enable_kernel, -errno, (libmnt_monitor * of, int enable), (of, enable))
CALL(int, mnt_monitor_get_fd, -errno, (libmnt_monitor * of), (of))
CALL(int, eventfd, -1, (unsigned count, int flags) noexcept, (count, flags))
CALL(int, inotify_add_watch, -1, (int file, const char* path, uint32_t mask) noexcept,
     (file, path, mask))

char* strdup(const char* text) noexcept {
    return is_in_library(__builtin_return_address(0), "libzel") && g_platform_calls.fails("strdup")
               ? nullptr
               : NEXT(strdup)(text);
}

int inotify_init1(int flags) noexcept {
    g_platform_calls.on_watch();
    return g_platform_calls.inotify =
               g_platform_calls.fails("inotify_init1") ? -1 : NEXT(inotify_init1)(flags);
}
}
