#include "ui/startup_notification.h"

#include <xcb/xcb.h>
#include <QGuiApplication>
#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace velt::ui {
namespace {

xcb_atom_t atom(xcb_connection_t* connection, const char* name) {
    xcb_intern_atom_reply_t* reply = xcb_intern_atom_reply(
        connection, xcb_intern_atom(connection, false, uint16_t(std::strlen(name)), name), nullptr);
    const xcb_atom_t value = reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
    std::free(reply);
    return value;
}

// key="value" with the protocol's quoting.
QByteArray quoted(const QString& value) {
    QByteArray text = value.toUtf8();
    text.replace('\\', "\\\\").replace('"', "\\\"");
    return '"' + text + '"';
}

}  // namespace

void completeX11Startup(const QString& startupId) {
    auto* x11 = qApp->nativeInterface<QNativeInterface::QX11Application>();
    if (startupId.isEmpty() || !x11 || !x11->connection()) return;
    xcb_connection_t* connection = x11->connection();
    const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
    const xcb_atom_t begin = atom(connection, "_NET_STARTUP_INFO_BEGIN");
    const xcb_atom_t more = atom(connection, "_NET_STARTUP_INFO");
    if (!screen || begin == XCB_ATOM_NONE || more == XCB_ATOM_NONE) return;
    // The messages travel in 20-byte pieces, from a window of the sender's own.
    const xcb_window_t window = xcb_generate_id(connection);
    xcb_create_window(connection, XCB_COPY_FROM_PARENT, window, screen->root, -100, -100, 1, 1, 0,
                      XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, 0, nullptr);
    const QByteArray message = "remove: ID=" + quoted(startupId) + '\0';
    for (qsizetype offset = 0; offset < message.size(); offset += 20) {
        xcb_client_message_event_t event;
        std::memset(&event, 0, sizeof event);
        event.response_type = XCB_CLIENT_MESSAGE;
        event.format = 8;
        event.window = window;
        event.type = offset == 0 ? begin : more;
        std::memcpy(event.data.data8, message.constData() + offset,
                    size_t(std::min<qsizetype>(20, message.size() - offset)));
        xcb_send_event(connection, false, screen->root, XCB_EVENT_MASK_PROPERTY_CHANGE,
                       reinterpret_cast<const char*>(&event));
    }
    xcb_destroy_window(connection, window);
    xcb_flush(connection);
}

}  // namespace velt::ui
