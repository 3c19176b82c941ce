#ifndef ZARVO_ROW_ENTITY_H
#define ZARVO_ROW_ENTITY_H

#include <map>
#include <string>
#include <vector>

#include "value_object.h"

namespace Zarvo {
namespace NativeRdb {

// One row of a result set, readable by column name or index.
class RowEntity {
public:
    // Adds the value of column `name` at `index`; the first column of a name wins for Get(name).
    void Put(const std::string &name, int index, const ValueObject &value);
    // The value of the column, or a null value when the row has no such column.
    ValueObject Get(const std::string &name) const;
    ValueObject Get(int index) const;
    const std::map<std::string, ValueObject> &Get() const { return values_; }
    void Clear();

private:
    std::map<std::string, ValueObject> values_;
    std::vector<ValueObject> indexedValues_;
};

}  // namespace NativeRdb
}  // namespace Zarvo

#endif  // ZARVO_ROW_ENTITY_H
