#include "sandbox.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <system_error>

namespace fs = std::filesystem;

namespace {

// In memory where there is such a file system.
fs::path MakeTemporaryDirectory() {
    const fs::path memory = "/dev/shm";
    const fs::path parent = access(memory.c_str(), W_OK) == 0 ? memory : fs::temp_directory_path();
    std::string name = parent / "index-fuzzer.XXXXXX";
    if (mkdtemp(name.data()) == nullptr) {
        std::perror(name.c_str());
        std::exit(1);
    }
    return name;
}

void Write(const fs::path& file, std::string_view text) {
    std::ofstream(file, std::ios::binary) << text;
}

}  // namespace

Sandbox::Sandbox() : m_Root(MakeTemporaryDirectory()) {
    fs::create_directories(m_Guard);
    Write(m_Guard / "file", "kept");
}

Sandbox::~Sandbox() {
    std::error_code error;
    fs::remove_all(m_Root, error);  // what cannot be removed stays in the temporary directory
}

void Sandbox::WriteIndex(std::string_view text) const { Write(Index(), text); }

std::string Sandbox::ReadIndex() const {
    std::ifstream file(Index(), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void Sandbox::MakeFolders() const {
    fs::path deep = m_Cache / "0/a";
    for (int level = 0; level < 40; ++level) {
        deep /= "b";
    }
    fs::create_directories(deep);
    Write(m_Cache / "0/a/file", "");
    LinkToGuard(m_Cache / "0/a/link");
    LinkToGuard(m_Cache / "1");
    Write(m_Cache / "2", "");
}

void Sandbox::LinkToGuard(const fs::path& link) const {
    if (!fs::is_symlink(link)) {
        fs::create_directory_symlink(m_Guard, link);
    }
}

std::string Sandbox::Confine(const std::string& path) const {
    static const char* const endings[] = {"", "/", "//", "/.", "/..", " ", "/a", "/a/.."};
    const std::size_t hash = std::hash<std::string>()(path);
    return (m_Cache / std::to_string(hash % 4)).string() + endings[hash / 4 % std::size(endings)];
}

bool Sandbox::IsGuardIntact() const { return fs::exists(m_Guard / "file"); }
