#include "iremote_broker.h"

namespace Zarvo {

BrokerRegistration &BrokerRegistration::Get() {
    static BrokerRegistration registration;
    return registration;
}

bool BrokerRegistration::Register(const std::u16string &descriptor, const Constructor &creator) {
    if (descriptor.empty() || !creator) {
        return false;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    return creators_.emplace(descriptor, creator).second;
}

void BrokerRegistration::Unregister(const std::u16string &descriptor) {
    std::lock_guard<std::mutex> lock(mutex_);
    creators_.erase(descriptor);
}

sptr<IRemoteBroker> BrokerRegistration::NewInstance(const std::u16string &descriptor,
                                                    const sptr<IRemoteObject> &object) {
    if (object == nullptr || object->GetInterfaceDescriptor() != descriptor) {
        return nullptr;
    }
    Constructor creator;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto found = creators_.find(descriptor);
        if (found == creators_.end()) {
            return nullptr;
        }
        creator = found->second;
    }
    return creator(object);
}

}  // namespace Zarvo
