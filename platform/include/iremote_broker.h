#ifndef ZARVO_IREMOTE_BROKER_H
#define ZARVO_IREMOTE_BROKER_H

#include <functional>
#include <map>
#include <mutex>
#include <string>

#include "iremote_object.h"
#include "refbase.h"

namespace Zarvo {

// An interface proxy bound to a remote object.
class IRemoteBroker {
public:
    virtual ~IRemoteBroker() = default;
    virtual sptr<IRemoteObject> AsObject() = 0;
};

// Maps interface descriptors to the proxies that speak them.
class BrokerRegistration {
public:
    using Constructor = std::function<sptr<IRemoteBroker>(const sptr<IRemoteObject> &object)>;

    static BrokerRegistration &Get();
    bool Register(const std::u16string &descriptor, const Constructor &creator);
    void Unregister(const std::u16string &descriptor);
    // A proxy for object, or null when the object is null, speaks another interface, or none is registered.
    sptr<IRemoteBroker> NewInstance(const std::u16string &descriptor, const sptr<IRemoteObject> &object);

private:
    BrokerRegistration() = default;

    std::mutex mutex_;
    std::map<std::u16string, Constructor> creators_;
};

// The proxy of interface INTERFACE for object, or null.
template <typename INTERFACE>
sptr<INTERFACE> iface_cast(const sptr<IRemoteObject> &object) {
    const std::u16string &descriptor = INTERFACE::GetDescriptor();
    return std::dynamic_pointer_cast<INTERFACE>(BrokerRegistration::Get().NewInstance(descriptor, object));
}

}  // namespace Zarvo

#endif  // ZARVO_IREMOTE_BROKER_H
