#include "result_set.h"

#include "rdb_errno.h"

namespace Zarvo::NativeRdb {

ResultSet::ResultSet(std::vector<std::string> columnNames, std::vector<std::vector<ValueObject>> rows)
    : columnNames_(std::move(columnNames)), rows_(std::move(rows)) {}

int ResultSet::GetRowCount(int &count) {
    if (closed_) {
        return E_ALREADY_CLOSED;
    }
    count = static_cast<int>(rows_.size());
    return E_OK;
}

int ResultSet::GetColumnCount(int &count) {
    if (closed_) {
        return E_ALREADY_CLOSED;
    }
    count = static_cast<int>(columnNames_.size());
    return E_OK;
}

int ResultSet::GetAllColumnNames(std::vector<std::string> &columnNames) {
    if (closed_) {
        return E_ALREADY_CLOSED;
    }
    columnNames = columnNames_;
    return E_OK;
}

int ResultSet::GetRowIndex(int &position) const {
    if (closed_) {
        return E_ALREADY_CLOSED;
    }
    position = position_;
    return E_OK;
}

int ResultSet::GoToRow(int position) {
    if (closed_) {
        return E_ALREADY_CLOSED;
    }
    const int count = static_cast<int>(rows_.size());
    if (position < 0 || position >= count) {
        // Moving past either end leaves the set before the first or after the last row.
        position_ = position < 0 ? -1 : count;
        return E_ROW_OUT_RANGE;
    }
    position_ = position;
    return E_OK;
}

int ResultSet::GoToFirstRow() {
    return GoToRow(0);
}

int ResultSet::GoToNextRow() {
    if (closed_) {
        return E_ALREADY_CLOSED;
    }
    return GoToRow(position_ + 1);
}

int ResultSet::IsAtLastRow(bool &result) {
    if (closed_) {
        return E_ALREADY_CLOSED;
    }
    result = position_ == static_cast<int>(rows_.size()) - 1;
    return E_OK;
}

int ResultSet::CheckCell(int columnIndex) const {
    if (closed_) {
        return E_ALREADY_CLOSED;
    }
    if (position_ < 0 || position_ >= static_cast<int>(rows_.size())) {
        return E_ROW_OUT_RANGE;
    }
    if (columnIndex < 0 || columnIndex >= static_cast<int>(columnNames_.size())) {
        return E_COLUMN_OUT_RANGE;
    }
    return E_OK;
}

int ResultSet::GetString(int columnIndex, std::string &value) {
    int status = CheckCell(columnIndex);
    if (status != E_OK) {
        return status;
    }
    return rows_[static_cast<size_t>(position_)][static_cast<size_t>(columnIndex)].GetString(value);
}

int ResultSet::GetInt(int columnIndex, int &value) {
    int status = CheckCell(columnIndex);
    if (status != E_OK) {
        return status;
    }
    return rows_[static_cast<size_t>(position_)][static_cast<size_t>(columnIndex)].GetInt(value);
}

int ResultSet::GetLong(int columnIndex, int64_t &value) {
    int status = CheckCell(columnIndex);
    if (status != E_OK) {
        return status;
    }
    return rows_[static_cast<size_t>(position_)][static_cast<size_t>(columnIndex)].GetLong(value);
}

int ResultSet::GetRow(RowEntity &rowEntity) {
    int status = CheckCell(0);
    if (status != E_OK && status != E_COLUMN_OUT_RANGE) {
        return status;
    }
    rowEntity.Clear();
    const auto &row = rows_[static_cast<size_t>(position_)];
    for (size_t i = 0; i < columnNames_.size(); ++i) {
        rowEntity.Put(columnNames_[i], static_cast<int>(i), row[i]);
    }
    return E_OK;
}

int ResultSet::Close() {
    closed_ = true;
    rows_.clear();
    rows_.shrink_to_fit();
    return E_OK;
}

}  // namespace Zarvo::NativeRdb
