/**
 * @file
 * Where the records of the thumb file begin and end.
 */
#ifndef ZEL_THUMB_FILE_SCAN_H
#define ZEL_THUMB_FILE_SCAN_H

#include <algorithm>
#include <cstddef>
#include <cstring>

/**
 * Finds the records in a buffer. Text that belongs to no record is passed over. A NUL before the
 * end of the next record ends the text, but for one right behind a ">", which goes with it.
 */
class CZELThumbFileScan {
public:
    CZELThumbFileScan(char* text, std::ptrdiff_t size) : m_Text(text), m_Size(size) {}

    /** The next record, from its "<" to its ">"; false when there is none that is complete. */
    [[nodiscard]] bool Next(char*& start, int& length) {
        while (m_Position < m_Size) {
            const std::ptrdiff_t open = m_Find('<', m_Size);
            const std::ptrdiff_t close = open < 0 ? -1 : m_Find('>', m_Size);
            if (close < 0 || m_Find('\0', std::max(open, close)) >= 0) {
                return false;
            }
            if (open < close) {
                start = m_Text + open;
                length = static_cast<int>(close - open);
                m_Position = close + 2;  // the ">" and the CR after it
                return true;
            }
            m_Position = open;
        }
        return false;
    }

    /** Where the text begins that belongs to no record so far; past the end when there is none. */
    [[nodiscard]] std::ptrdiff_t Position() const { return m_Position; }

private:
    [[nodiscard]] std::ptrdiff_t m_Find(char wanted, std::ptrdiff_t end) const {
        const void* found =
            std::memchr(m_Text + m_Position, wanted, static_cast<std::size_t>(end - m_Position));
        return found == nullptr ? -1 : static_cast<const char*>(found) - m_Text;
    }

    char* const m_Text;
    const std::ptrdiff_t m_Size;
    std::ptrdiff_t m_Position = 0;
};

#endif
