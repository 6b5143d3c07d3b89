/**
 * @file
 * Tables on standard output.
 */
#ifndef ZEL_TOOLS_TABLE_H
#define ZEL_TOOLS_TABLE_H

#include <libsmartcols/libsmartcols.h>

#include <string>
#include <vector>

#include "util/release.h"

/** Where the texts of a column stand. */
enum class Alignment { kLeft, kRight };

/**
 * A table with its columns below one another, in the width of the terminal if there is one. What
 * cannot be shown is replaced or escaped. Throws std::bad_alloc.
 */
class Table {
public:
    struct Column {
        const char* heading;
        Alignment alignment = Alignment::kLeft;
    };

    explicit Table(const std::vector<Column>& columns);

    /** Adds a line with one text a column. */
    void AddRow(const std::vector<std::string>& texts);

    void Print() const;

private:
    const CZELHandle<libscols_table, scols_unref_table> table_;
};

#endif
