#include "row_entity.h"

namespace Zarvo::NativeRdb {

void RowEntity::Put(const std::string &name, int index, const ValueObject &value) {
    if (index < 0) {
        return;
    }
    values_.emplace(name, value);
    if (indexedValues_.size() <= static_cast<size_t>(index)) {
        indexedValues_.resize(static_cast<size_t>(index) + 1);
    }
    indexedValues_[static_cast<size_t>(index)] = value;
}

ValueObject RowEntity::Get(const std::string &name) const {
    auto found = values_.find(name);
    return found == values_.end() ? ValueObject() : found->second;
}

ValueObject RowEntity::Get(int index) const {
    if (index < 0 || static_cast<size_t>(index) >= indexedValues_.size()) {
        return ValueObject();
    }
    return indexedValues_[static_cast<size_t>(index)];
}

void RowEntity::Clear() {
    values_.clear();
    indexedValues_.clear();
}

}  // namespace Zarvo::NativeRdb
