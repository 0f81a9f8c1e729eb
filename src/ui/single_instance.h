// One desktop program per user session: the first launch owns a name on the session bus; a
// later launch hands it what it was asked for — a part to open, a folder to watch, and the
// launcher's activation token, so that the window may come to the front on Wayland — and ends.
// Without a session bus every launch runs.
//
// Main thread only.
#pragma once

#include "app/command_line.h"

#include <QString>
#include <functional>
#include <memory>
#include <optional>

namespace velt::ui {

class SingleInstance {
  public:
    static const QString serviceName;  // "com.velt.Compressor"

    struct Request {
        CommandLineRequest::DesktopPart open = CommandLineRequest::DesktopPart::panel;
        std::optional<QString> watchDirectory;
        QString activationToken;
    };

    // Claims the name; `onRequest` runs when a later launch asks for something.
    explicit SingleInstance(std::function<void(const Request&)> onRequest);
    ~SingleInstance();
    SingleInstance(const SingleInstance&) = delete;
    SingleInstance& operator=(const SingleInstance&) = delete;

    // False when another process owns the name.
    bool isPrimary() const { return primary_; }
    // Hands `request` to the process that owns the name; whether it took it.
    static bool forward(const Request& request);

  private:
    class Endpoint;
    std::unique_ptr<Endpoint> endpoint_;
    bool primary_ = true;
};

}  // namespace velt::ui
