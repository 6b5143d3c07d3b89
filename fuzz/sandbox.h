/**
 * @file
 * The only place where the fuzz target writes and removes: a temporary directory of its own.
 */
#ifndef ZEL_FUZZ_SANDBOX_H
#define ZEL_FUZZ_SANDBOX_H

#include <filesystem>
#include <string>
#include <string_view>

/** Holds the index and the device folders of a cache. Ends the process when it cannot be made. */
class Sandbox {
public:
    Sandbox();
    ~Sandbox();

    Sandbox(const Sandbox&) = delete;
    Sandbox& operator=(const Sandbox&) = delete;

    /** The path of the index. */
    std::string Index() const { return m_Root / "index"; }

    void WriteIndex(std::string_view text) const;
    std::string ReadIndex() const;

    /** Makes what Confine() gives paths of: a deep tree, a link to the guard and a file. */
    void MakeFolders() const;

    /**
     * A path in the sandbox in place of one from an input, always the same for the same one.
     * @return one of 32: of a tree, a link, a file and of nothing, spelt in 8 ways
     */
    std::string Confine(const std::string& path) const;

    /** Whether what is outside the device folders is still there. */
    bool IsGuardIntact() const;

private:
    void LinkToGuard(const std::filesystem::path& link) const;

    const std::filesystem::path m_Root;
    const std::filesystem::path m_Cache = m_Root / "cache";
    const std::filesystem::path m_Guard = m_Cache / "guard";
};

#endif
