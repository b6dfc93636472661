#include "opener/viewer/CompositorKeys.h"

#ifdef ZELVO_COMPOSITOR_KEYS
#include <keyboard-shortcuts-inhibit-unstable-v1.h>
#include <qpa/qplatformnativeinterface.h>
#include <wayland-client.h>

#include <QGuiApplication>
#include <QWidget>
#include <QWindow>
#include <string_view>
#endif

namespace zelvo::opener {

#ifdef ZELVO_COMPOSITOR_KEYS

namespace {

template <auto release>
struct Releaser {
    template <typename T>
    void operator()(T* object) const {
        release(object);
    }
};

using Queue = std::unique_ptr<wl_event_queue, Releaser<wl_event_queue_destroy>>;
using Wrapper = std::unique_ptr<void, Releaser<wl_proxy_wrapper_destroy>>;
using Registry = std::unique_ptr<wl_registry, Releaser<wl_registry_destroy>>;
using Manager = std::unique_ptr<zwp_keyboard_shortcuts_inhibit_manager_v1,
                                Releaser<zwp_keyboard_shortcuts_inhibit_manager_v1_destroy>>;

}  // namespace

/// On Qt's connection, which another thread of Qt's reads.
struct CompositorKeys::Compositor {
    wl_display* display = nullptr;
    wl_seat* seat = nullptr;
    Manager manager;

    Compositor() {
        // Another version's interface may be laid out otherwise.
        if (std::string_view(qVersion()) != QT_VERSION_STR)
            return;
        auto* native = QGuiApplication::platformNativeInterface();
        if (!native || !QGuiApplication::platformName().startsWith("wayland"))
            return;
        display = static_cast<wl_display*>(native->nativeResourceForIntegration("wl_display"));
        seat = static_cast<wl_seat*>(native->nativeResourceForIntegration("wl_seat"));
        if (display && seat)
            findManager();
    }

  private:
    void findManager() {
        const Queue queue(wl_display_create_queue(display));
        const Wrapper wrapper(wl_proxy_create_wrapper(display));
        wl_proxy_set_queue(static_cast<wl_proxy*>(wrapper.get()), queue.get());
        const Registry registry(wl_display_get_registry(static_cast<wl_display*>(wrapper.get())));
        static constexpr wl_registry_listener listener{
            .global =
                [](void* self, wl_registry* its, std::uint32_t name, const char* interface,
                   std::uint32_t) {
                    static_cast<Compositor*>(self)->offered(its, name, interface);
                },
            .global_remove = [](void*, wl_registry*, std::uint32_t) {}};
        wl_registry_add_listener(registry.get(), &listener, this);
        wl_display_roundtrip_queue(display, queue.get());
        // What the compositor says to its inhibitors later nobody here listens to.
        if (manager)
            wl_proxy_set_queue(reinterpret_cast<wl_proxy*>(manager.get()), nullptr);
    }
    void offered(wl_registry* registry, std::uint32_t name, std::string_view interface) {
        const auto& wanted = zwp_keyboard_shortcuts_inhibit_manager_v1_interface;
        if (interface == wanted.name)
            manager.reset(static_cast<zwp_keyboard_shortcuts_inhibit_manager_v1*>(
                wl_registry_bind(registry, name, &wanted, 1)));
    }
};

class CompositorKeys::Inhibitor {
  public:
    Inhibitor(const Compositor& compositor, wl_surface* surface)
        : display_(compositor.display),
          inhibitor_(zwp_keyboard_shortcuts_inhibit_manager_v1_inhibit_shortcuts(
              compositor.manager.get(), surface, compositor.seat)) {
        wl_display_flush(display_);
    }
    Inhibitor(const Inhibitor&) = delete;
    Inhibitor& operator=(const Inhibitor&) = delete;
    ~Inhibitor() {
        zwp_keyboard_shortcuts_inhibitor_v1_destroy(inhibitor_);
        wl_display_flush(display_);
    }

  private:
    wl_display* display_;
    zwp_keyboard_shortcuts_inhibitor_v1* inhibitor_;
};

void CompositorKeys::hold(const QWidget& widget) {
    if (!compositor_)
        compositor_ = std::make_unique<Compositor>();
    auto* window = widget.window()->windowHandle();
    if (inhibitor_ || !compositor_->manager || !window)
        return;
    auto* surface =
        QGuiApplication::platformNativeInterface()->nativeResourceForWindow("surface", window);
    if (surface)
        inhibitor_ = std::make_unique<Inhibitor>(*compositor_, static_cast<wl_surface*>(surface));
}

#else

struct CompositorKeys::Compositor {};
class CompositorKeys::Inhibitor {};
void CompositorKeys::hold(const QWidget&) {}

#endif

CompositorKeys::CompositorKeys() = default;
CompositorKeys::~CompositorKeys() = default;

void CompositorKeys::letGo() {
    inhibitor_.reset();
}

}  // namespace zelvo::opener
