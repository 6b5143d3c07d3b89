#include "table.h"

#include <cstdio>
#include <new>

#include "report.h"

namespace {

void Check(bool has_memory) {
    if (!has_memory) {
        throw std::bad_alloc();
    }
}

}  // namespace

Table::Table(const std::vector<Column>& columns) : table_(scols_new_table()) {
    Check(table_ != nullptr);
    for (const Column& column : columns) {
        const int flags = column.alignment == Alignment::kRight ? SCOLS_FL_RIGHT : SCOLS_FL_WRAP;
        Check(scols_table_new_column(table_.get(), column.heading, 0, flags) != nullptr);
    }
}

void Table::AddRow(const std::vector<std::string>& texts) {
    libscols_line* line = scols_table_new_line(table_.get(), nullptr);
    Check(line != nullptr);
    for (std::size_t column = 0; column < texts.size(); ++column) {
        Check(scols_line_set_data(line, column, Printable(texts[column]).c_str()) == 0);
    }
}

void Table::Print() const { Check(scols_print_table(table_.get()) == 0); }
