#include "tree_removal.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <tuple>

#include "util/release.h"

namespace {

// Each level costs a descriptor and a stack frame; what lies deeper is moved up first.
constexpr int maxDepth = 32;
constexpr int maxAttempts = 100;

// With less, readdir() ends at the first large inode number.
static_assert(sizeof(off_t) == sizeof(std::int64_t), "build with _FILE_OFFSET_BITS=64");

using Directory = CZELHandle<DIR, closedir>;

// Opens a directory, but not through a link.
Directory OpenDirectory(int parent, const char* name) {
    const int descriptor = openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    Directory directory(descriptor < 0 ? nullptr : fdopendir(descriptor));
    if (!directory && descriptor >= 0) {
        std::ignore = close(descriptor);  // nothing was read from it
    }
    return directory;
}

// Whether what could not be unlinked may be a directory. Where the process may not write, it hears
// no more than that, but what is inside may be open to it.
bool MayBeDirectory() { return errno == EISDIR || errno == EPERM || errno == EACCES; }

class TreeRemoval {
public:
    bool Remove(int parent, const char* name) {
        if (unlinkat(parent, name, 0) == 0) {
            return true;
        }
        if (!MayBeDirectory()) {
            return false;
        }
        if (const Directory top = OpenDirectory(parent, name)) {
            m_Top = dirfd(top.get());
            do {
                m_bMoved = false;
                rewinddir(top.get());
                m_RemoveContent(top.get(), 1);
            } while (m_bMoved);
        }
        return unlinkat(parent, name, AT_REMOVEDIR) == 0;
    }

private:
    void m_RemoveContent(DIR* directory, int depth) {
        while (const dirent* entry = readdir(directory)) {
            const std::string_view name = entry->d_name;
            if (name != "." && name != "..") {
                m_RemoveEntry(dirfd(directory), entry->d_name, depth);
            }
        }
    }

    // What stays shows when the directory that holds it cannot be removed.
    void m_RemoveEntry(int parent, const char* name, int depth) {
        if (unlinkat(parent, name, 0) == 0 || !MayBeDirectory() ||
            unlinkat(parent, name, AT_REMOVEDIR) == 0) {
            return;
        }
        if (depth == maxDepth) {
            m_MoveUp(parent, name);
        } else if (const Directory directory = OpenDirectory(parent, name)) {
            m_RemoveContent(directory.get(), depth + 1);
            std::ignore = unlinkat(parent, name, AT_REMOVEDIR);
        }
    }

    // Under a name that is free, or of an empty directory.
    void m_MoveUp(int parent, const char* name) {
        for (int attempt = 0; attempt < maxAttempts; ++attempt) {
            char newName[32];
            std::ignore =
                std::snprintf(newName, sizeof newName, ".deep-%lu", m_Moves++);  // it fits
            if (renameat(parent, name, m_Top, newName) == 0) {
                m_bMoved = true;
                return;
            }
        }
    }

    int m_Top = -1;
    bool m_bMoved = false;  // whether the top has something new to remove
    unsigned long m_Moves = 0;
};

}  // namespace

bool RemoveTree(const std::string& path) {
    const std::size_t last = path.find_last_not_of('/');
    if (last == std::string::npos || std::strlen(path.c_str()) != path.size()) {
        return false;
    }
    // Without its trailing "/", which would make a link the directory that it leads to.
    const std::string target = path.substr(0, last + 1);
    const std::string_view name = std::string_view(target).substr(target.rfind('/') + 1);
    return name != "." && name != ".." && TreeRemoval().Remove(AT_FDCWD, target.c_str());
}
