/**
 * @file
 * The file of the index, and what is known of it.
 */
#ifndef ZEL_THUMB_FILE_H
#define ZEL_THUMB_FILE_H

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

class CZELReplacementFile;

/**
 * Reads, extends and replaces the text of the thumb file, and remembers what became of it. What a
 * record says is left to others. Each failure of the file is one line of log. Not for use by
 * several threads.
 */
class CZELThumbFile {
public:
    /** The file at a path that lives as long as the object. A change of it is to be told. */
    explicit CZELThumbFile(const std::string& path) : m_Path(path) {}

    /** Tells that the file is another one, or may be, whose content matters to nobody. */
    void Forget() { m_State = {}; }

    /** The same for a file whose content matters, though nobody has read it: it is only added to.
     */
    void ForgetUnread() {
        Forget();
        m_State.bIsRead = false;
    }

    /** Takes a record: its "<", the distance from there to its ">", and where it is in the file. */
    using TakeRecord = std::function<void(char* start, int length, std::size_t offset)>;
    /**
     * Hands over all records of the file, of which only one has to be in memory at a time. Passes
     * on what is thrown by the taker.
     * @return false when the file cannot be opened or there is no memory to read it into
     */
    [[nodiscard]] bool Load(const TakeRecord& takeRecord);

    /** Whether the file that was loaded could be read, so that it may be rewritten. */
    [[nodiscard]] bool IsRead() const { return m_State.bIsRead; }

    /** Whether what is appended would not be read, or come too late, without a rewrite before. */
    [[nodiscard]] bool NeedsRewrite() const { return m_State.bNeedsRewrite && m_State.bIsRead; }

    enum class AppendResult { Appended, NotOpened, Short };
    /**
     * Appends a record behind those that there was no room for before, or nothing. What has no room
     * is remembered for the next time, for which it needs memory unless enough is reserved; may
     * then throw std::bad_alloc, with the file as it was.
     */
    [[nodiscard]] AppendResult Append(std::string_view record);

    /** Lets so many of the next calls of Append() need no memory, or throws std::bad_alloc. */
    void ReserveAppends(std::size_t count);

    /** Puts all records into the new text of the file; false when the device is full or fails. */
    using WriteRecords = std::function<bool(CZELReplacementFile&)>;
    /**
     * Replaces the text of the file, or keeps the old one where the device is full or fails.
     * @return false when the file cannot be opened, or holds what nobody has read, which stays
     */
    [[nodiscard]] bool Rewrite(const WriteRecords& writeRecords);

private:
    struct State {
        bool bIsRead = true;         // all that the file held was handed over: it may be rewritten
        bool bEndIsWhole = false;    // it ends with a whole record, so that one may follow
        bool bNeedsRewrite = false;  // what is appended would not be read, or would come too late
        std::string strMissing;      // records that there was no room for, in their order
    };

    const std::string& m_Path;
    State m_State;
};

#endif
