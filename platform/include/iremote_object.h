#ifndef ZARVO_IREMOTE_OBJECT_H
#define ZARVO_IREMOTE_OBJECT_H

#include <string>

#include "refbase.h"

namespace Zarvo {

// A service object reached through the system ability manager, known by its interface descriptor.
class IRemoteObject {
public:
    explicit IRemoteObject(std::u16string descriptor) : descriptor_(std::move(descriptor)) {}
    virtual ~IRemoteObject() = default;
    const std::u16string &GetInterfaceDescriptor() const { return descriptor_; }

private:
    std::u16string descriptor_;
};

}  // namespace Zarvo

#endif  // ZARVO_IREMOTE_OBJECT_H
