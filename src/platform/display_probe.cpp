#include "platform/display_probe.h"

#include <dlfcn.h>
#include <QFileInfo>
#include <QStringList>

namespace velt {
namespace {

// A library opened for one check and closed again.
class Library {
  public:
    explicit Library(const char* name) : handle_(dlopen(name, RTLD_NOW | RTLD_LOCAL)) {}
    ~Library() {
        if (handle_) dlclose(handle_);
    }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    template <typename Function>
    Function* symbol(const char* name) const {
        return handle_ ? reinterpret_cast<Function*>(dlsym(handle_, name)) : nullptr;
    }

  private:
    void* handle_;
};

bool x11Answers() {
    if (qEnvironmentVariableIsEmpty("DISPLAY")) return false;
    const Library xcb("libxcb.so.1");
    using Connect = void*(const char*, int*);
    using HasError = int(void*);
    using Disconnect = void(void*);
    auto* connect = xcb.symbol<Connect>("xcb_connect");
    auto* hasError = xcb.symbol<HasError>("xcb_connection_has_error");
    auto* disconnect = xcb.symbol<Disconnect>("xcb_disconnect");
    if (!connect || !hasError || !disconnect) return false;
    // The same call the toolkit makes, so authorisation problems count too.
    void* connection = connect(nullptr, nullptr);
    const bool ok = connection && hasError(connection) == 0;
    if (connection) disconnect(connection);
    return ok;
}

bool waylandAnswers() {
    const QString name = qEnvironmentVariable("WAYLAND_DISPLAY");
    if (name.isEmpty()) return false;
    // Where the library would look; without the socket it would only complain on stderr.
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    const QString socket = name.startsWith(QLatin1Char('/')) ? name
                           : runtime.isEmpty()               ? QString()
                                                             : runtime + QLatin1Char('/') + name;
    if (socket.isEmpty() || !QFileInfo::exists(socket)) return false;
    const Library wayland("libwayland-client.so.0");
    using Connect = void*(const char*);
    using Disconnect = void(void*);
    auto* connect = wayland.symbol<Connect>("wl_display_connect");
    auto* disconnect = wayland.symbol<Disconnect>("wl_display_disconnect");
    if (!connect || !disconnect) return false;
    void* display = connect(nullptr);
    if (display) disconnect(display);
    return display != nullptr;
}

QString displayNames() {
    QStringList names;
    for (const char* name : {"WAYLAND_DISPLAY", "DISPLAY"})
        if (!qEnvironmentVariableIsEmpty(name))
            names << QString::fromLatin1(name) + QLatin1Char('=') + qEnvironmentVariable(name);
    return names.join(QStringLiteral(", "));
}

}  // namespace

std::optional<DisplayChoice> reachableDisplay(QString* tried) {
    const QString requested = qEnvironmentVariable("QT_QPA_PLATFORM");
    const bool wayland = waylandAnswers();
    const bool x11 = x11Answers();
    if (!requested.isEmpty()) {
        // The user's choice, as long as one of its platforms can start.
        for (const QString& name : requested.split(QLatin1Char(';'), Qt::SkipEmptyParts)) {
            const QString platform = name.section(QLatin1Char(':'), 0, 0);
            if (platform.startsWith(QLatin1String("wayland")) ? wayland
                : platform == QLatin1String("xcb")            ? x11
                                                              : true)
                return DisplayChoice{};
        }
    } else if (wayland && x11) {
        return DisplayChoice{};
    } else if (wayland) {
        return DisplayChoice{QStringLiteral("wayland")};
    } else if (x11) {
        return DisplayChoice{QStringLiteral("xcb")};
    }
    if (tried) *tried = displayNames();
    return std::nullopt;
}

}  // namespace velt
