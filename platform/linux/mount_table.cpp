#include "mount_table.h"

#include <fcntl.h>
#include <libmount/libmount.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <stdexcept>
#include <system_error>

#include "util/file_descriptor.h"
#include "util/release.h"

namespace zel::platform {
namespace {

using MountTable = CZELHandle<libmnt_table, mnt_unref_table>;
using MountIterator = CZELHandle<libmnt_iter, mnt_free_iter>;
using Stream = CZELHandle<std::FILE, std::fclose>;

// Read here, as a stream takes an error in the middle for the end.
std::string read_file(const char* path) {
    CZELFileDescriptor file(open(path, O_RDONLY | O_CLOEXEC));
    std::string text;
    std::array<char, 16384> piece;
    std::size_t size = piece.size();
    bool is_read = file.IsOpen();
    while (is_read && size == piece.size()) {
        is_read = file.ReadUpTo(piece.data(), piece.size(), size);
        text.append(piece.data(), size);
    }
    if (!is_read)
        throw std::system_error(errno, std::generic_category(), "the mount table");
    return text;
}

// Lines that stand for a mount.
int count_mounts(const std::string& text) {
    int count = 0;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        if (end > start && text[start] != '#')
            ++count;
        start = end + 1;
    }
    return count;
}

// Without it libmount passes over a line that it cannot parse.
int refuse_line(libmnt_table*, const char*, int) { return -EINVAL; }

}  // namespace

const char* mount_table_replacement() {
    const char* path = std::getenv("ZEL_MOUNTINFO");
    return path != nullptr && *path != '\0' ? path : nullptr;
}

DevicesByPath read_mount_table() {
    const char* replacement = mount_table_replacement();
    std::string text = read_file(replacement != nullptr ? replacement : "/proc/self/mountinfo");
    if (text.empty())
        return {};
    const Stream stream(fmemopen(text.data(), text.size(), "r"));
    const MountTable table(mnt_new_table());
    const MountIterator iterator(mnt_new_iter(MNT_ITER_FORWARD));
    if (!stream || !table || !iterator)
        throw std::bad_alloc();
    if (mnt_table_set_parser_errcb(table.get(), refuse_line) != 0 ||
        mnt_table_parse_stream(table.get(), stream.get(), "mountinfo") != 0)
        throw std::runtime_error("the mount table has a line that cannot be parsed");
    // libmount takes a shortage of memory in the middle for the end.
    if (mnt_table_get_nents(table.get()) != count_mounts(text))
        throw std::runtime_error("not every line of the mount table can be parsed");
    DevicesByPath devices;
    libmnt_fs* mount = nullptr;
    while (mnt_table_next_fs(table.get(), iterator.get(), &mount) == 0) {
        const char* target = mnt_fs_get_target(mount);
        if (target == nullptr)
            throw std::runtime_error("the mount table has a line without a mount point");
        devices[target] = mnt_fs_get_devno(mount);
    }
    return devices;
}

}  // namespace zel::platform
