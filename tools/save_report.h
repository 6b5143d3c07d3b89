/**
 * @file
 * What `save` tells of its pictures.
 */
#ifndef ZEL_TOOLS_SAVE_REPORT_H
#define ZEL_TOOLS_SAVE_REPORT_H

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "thumbnail_store.h"

/** Collects what became of each picture: failures are told at once, the rest at the end. */
class SaveReport {
public:
    /** Begins to measure the time. */
    SaveReport() = default;

    /** Reports a failure on standard error. */
    void AddFailure(const std::string& picture, const std::string& why);

    /** Notes a thumbnail that was saved, or one that was kept. */
    void Add(const std::string& picture, const Thumbnail& thumbnail, bool is_saved);

    [[nodiscard]] bool HasFailures() const { return failures_ > 0; }

    /** Shows on a terminal how many pictures are done, how fast, and which one is next. */
    void ShowProgress(std::size_t done, const std::vector<std::string>& pictures) const;

    /**
     * Prints a table, unless there is more than a screenful, and the sums. A thumbnail that was
     * deleted to make room for a later one is called evicted.
     * @param is_verbose  print the table in any case
     */
    void Print(bool is_verbose) const;

private:
    struct Row {
        std::string picture;
        Thumbnail thumbnail;
        bool is_saved;
    };

    [[nodiscard]] double Seconds() const;

    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    std::vector<Row> rows_;
    std::size_t failures_ = 0;
};

#endif
