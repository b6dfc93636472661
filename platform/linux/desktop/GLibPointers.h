#pragma once

#include <gio/gio.h>

#include <functional>
#include <memory>

namespace zelvo::platform {

struct GObjectUnref {
    void operator()(gpointer object) const { g_object_unref(object); }
};
template <typename T>
using GObjectPointer = std::unique_ptr<T, GObjectUnref>;

struct GVariantUnref {
    void operator()(GVariant* value) const { g_variant_unref(value); }
};
using GVariantPointer = std::unique_ptr<GVariant, GVariantUnref>;

/// An event source of the thread's own context, which ends with this object.
struct GSourceDestroy {
    void operator()(GSource* source) const {
        g_source_destroy(source);
        g_source_unref(source);
    }
};
using GSourcePointer = std::unique_ptr<GSource, GSourceDestroy>;

}  // namespace zelvo::platform
