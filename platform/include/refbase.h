#ifndef ZARVO_REFBASE_H
#define ZARVO_REFBASE_H

#include <memory>

namespace Zarvo {

// Strong reference to a shared platform object; the object lives while a reference holds it.
template <typename T>
using sptr = std::shared_ptr<T>;

}  // namespace Zarvo

#endif  // ZARVO_REFBASE_H
