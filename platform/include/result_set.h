#ifndef ZARVO_RESULT_SET_H
#define ZARVO_RESULT_SET_H

#include <string>
#include <vector>

#include "row_entity.h"
#include "value_object.h"

namespace Zarvo {
namespace NativeRdb {

// The rows of one query, read when the query ran. Every call returns E_OK or an error code; the
// position starts at -1, before the first row.
class ResultSet {
public:
    ResultSet(std::vector<std::string> columnNames, std::vector<std::vector<ValueObject>> rows);
    virtual ~ResultSet() = default;

    int GetRowCount(int &count);
    int GetColumnCount(int &count);
    int GetAllColumnNames(std::vector<std::string> &columnNames);
    int GetRowIndex(int &position) const;
    int GoToRow(int position);
    int GoToFirstRow();
    int GoToNextRow();
    // True when the position is the last row (count - 1); before the first move of an empty
    // result that is the case too.
    int IsAtLastRow(bool &result);
    // The text of a column of the current row: integers and reals in decimal, null as "".
    int GetString(int columnIndex, std::string &value);
    int GetInt(int columnIndex, int &value);
    int GetLong(int columnIndex, int64_t &value);
    int GetRow(RowEntity &rowEntity);
    int Close();
    bool IsClosed() const { return closed_; }

private:
    int CheckCell(int columnIndex) const;

    std::vector<std::string> columnNames_;
    std::vector<std::vector<ValueObject>> rows_;
    int position_ = -1;
    bool closed_ = false;
};

}  // namespace NativeRdb
}  // namespace Zarvo

#endif  // ZARVO_RESULT_SET_H
