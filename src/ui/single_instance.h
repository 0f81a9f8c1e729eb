// One desktop program per user session: the first launch owns a name on the session bus; a
// later launch asks it to show its panel and ends. Without a session bus every launch runs.
//
// Main thread only.
#pragma once

#include <QString>
#include <functional>
#include <memory>

namespace velt::ui {

class SingleInstance {
  public:
    static const QString serviceName;  // "com.velt.Compressor"

    // Claims the name; `onShowPanel` runs when a later launch asks for the panel.
    explicit SingleInstance(std::function<void()> onShowPanel);
    ~SingleInstance();
    SingleInstance(const SingleInstance&) = delete;
    SingleInstance& operator=(const SingleInstance&) = delete;

    // False when another process owns the name; it has been asked to show its panel.
    bool isPrimary() const { return primary_; }

  private:
    class Endpoint;
    std::unique_ptr<Endpoint> endpoint_;
    bool primary_ = true;
};

}  // namespace velt::ui
