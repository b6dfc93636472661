#pragma once

#include <string>

#include "platform/linux/desktop/GLibPointers.h"

namespace zelvo::platform {

/// A connection of its own to the message bus at the address, to that of the kind where the address
/// is empty. Null where there is none. Waits for the bus until it is cancelled.
GObjectPointer<GDBusConnection> connectToBus(GBusType kind, const std::string& address,
                                             GCancellable* cancellable);

struct BusCall {
    const char* service;
    const char* path;
    const char* interface;
    const char* method;
};

/// What the method answers; null when the service does not run, and when it does not answer in the
/// form that is wanted within 0.3 s. The arguments are taken over and may be null.
GVariantPointer callOnBus(GDBusConnection* bus, const BusCall& call, GVariant* arguments,
                          const char* answerType, GCancellable* cancellable);

}  // namespace zelvo::platform
