#pragma once

#include <map>
#include <string>
#include <vector>

#include "core/NetSnmp.h"
#include "support/FakeAgent.h"
#include "support/Journal.h"

/// A bank table's content in the agent, as lines of text.
namespace bankrows {

/// The name of a cell: the table, its entry (1), the column, the row.
template <std::size_t Length>
std::vector<oid> Cell(const oid (&table)[Length], oid column, oid row) {
    std::vector<oid> name(table, table + Length);
    name.insert(name.end(), {1, column, row});
    return name;
}

/// Type, size in bytes, value and, where the cell can be written, "w": "octets 4 BNK2", "integer 4 1 w".
inline std::string CellText(const netsnmp_table_data_set_storage& cell) {
    std::string text;
    if (cell.type == ASN_OCTET_STR) {
        text = journal::Join("octets", cell.data_len,
                             std::string(reinterpret_cast<const char*>(cell.data.string), cell.data_len));
    } else if (cell.type == ASN_INTEGER) {
        // The agent stores exactly the bytes that it got.
        const auto value = cell.data_len == sizeof(int) ? *reinterpret_cast<const int*>(cell.data.integer) : -999;
        text = journal::Join("integer", cell.data_len, value);
    } else {
        text = journal::Join("type", static_cast<int>(cell.type));
    }
    return cell.writable ? text + " w" : text;
}

/// The stored rows in the agent's order, their cells by column: ".1: octets 4 BNK2, integer 4 0, integer 4 1"; ".1:"
/// for a row without values.
inline journal::Lines Stored(const netsnmp_table_data_set* dataSet) {
    journal::Lines rows;
    for (const auto* row = dataSet->table->first_row; row != nullptr; row = row->next) {
        std::map<unsigned, std::string> cells;
        for (auto* cell = static_cast<const netsnmp_table_data_set_storage*>(row->data); cell; cell = cell->next) {
            cells[cell->column] = CellText(*cell);
        }
        auto text = OidText(row->index_oid, row->index_oid_len) + ":";
        for (const auto& [column, cell] : cells) text += (column == 1 ? " " : ", ") + cell;
        rows.push_back(text);
    }
    return rows;
}

/// The columns that the table declares: "1 type 4", "3 type 2 w"; "default" marks a column with a default value.
inline journal::Lines Columns(const netsnmp_table_data_set* dataSet) {
    journal::Lines columns;
    for (const auto* column = dataSet->default_row; column != nullptr; column = column->next) {
        auto text = journal::Join(column->column, "type", static_cast<int>(column->type));
        if (column->writable) text += " w";
        if (column->data.voidp != nullptr) text += " default";
        columns.push_back(text);
    }
    return columns;
}

}  // namespace bankrows
