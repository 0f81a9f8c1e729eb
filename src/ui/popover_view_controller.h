// PopoverViewController: what the panel under the tray icon shows — an onboarding card while no
// folder is chosen, otherwise the main menu: the on/off switch, the folder row, the compression
// settings with the per-format quality sliders (expanded only for the custom preset), and the
// action rows. Every control acts on the store; render() brings everything up to date from it.
//
// Main thread only.
#pragma once

#include "model/app_language.h"

#include <QSize>
#include <QVariantAnimation>
#include <QWidget>
#include <array>
#include <functional>
#include <optional>

class QComboBox;
class QLabel;
class QPushButton;
class QVBoxLayout;

namespace velt {
class AppStore;
}

namespace velt::ui {

class CollapsibleContainerView;
class PopupRow;
class QualityRow;
class RowButton;
class SwitchRow;

class PopoverViewController : public QWidget {
  public:
    struct Callbacks {
        std::function<void()> onOpenSettings;
        std::function<void()> onOpenHistory;
        std::function<void()> onSelectWatchDirectory;
        std::function<void()> onQuit;
        // The panel's body wants another height (onboarding ↔ menu, quality block).
        std::function<void()> onContentSizeChanged;
    };

    PopoverViewController(AppStore& store, Callbacks callbacks, QWidget* parent = nullptr);

    void render();
    // The body's size for what is shown now.
    QSize currentContentSize() const;

    // For the owner and the tests: what is shown and how.
    bool showsOnboarding() const { return lastShowsOnboarding_.value_or(true); }
    bool showsCustomControls() const { return showsCustomControls_; }
    SwitchRow* compressionSwitchRow() const { return compressionSwitchRow_; }
    RowButton* folderRow() const { return folderRow_; }
    PopupRow* presetRow() const { return presetRow_; }
    PopupRow* formatRow() const { return formatRow_; }
    PopupRow* originalRow() const { return originalRow_; }
    const std::array<QualityRow*, 5>& qualityRows() const { return qualityRows_; }
    CollapsibleContainerView* qualityGroupContainer() const { return qualityGroupContainer_; }
    QLabel* errorLabel() const { return errorLabel_; }
    QPushButton* onboardingButton() const { return onboardingButton_; }
    std::vector<RowButton*> actionRows() const;

  private:
    void buildMain();
    void buildOnboarding();
    void applyTexts(AppLanguage language);
    void fillPopups(AppLanguage language);
    void renderQualityBlock(bool animated);
    void showOnboarding(bool onboarding);
    void choosePreset();
    void chooseFormat();
    void chooseOriginal();
    void qualityChanged(int index);
    void toggleCompression();

    AppStore& store_;
    Callbacks callbacks_;

    QWidget* mainContainer_ = nullptr;
    QWidget* onboardingContainer_ = nullptr;
    QLabel* titleLabel_ = nullptr;
    SwitchRow* compressionSwitchRow_ = nullptr;
    QLabel* errorLabel_ = nullptr;
    RowButton* folderRow_ = nullptr;
    PopupRow* presetRow_ = nullptr;
    PopupRow* formatRow_ = nullptr;
    PopupRow* originalRow_ = nullptr;
    CollapsibleContainerView* qualityGroupContainer_ = nullptr;
    std::array<QualityRow*, 5> qualityRows_{};
    RowButton* openFolderRow_ = nullptr;
    RowButton* historyRow_ = nullptr;
    RowButton* settingsRow_ = nullptr;
    RowButton* websiteRow_ = nullptr;
    RowButton* quitRow_ = nullptr;
    QLabel* onboardingTitleLabel_ = nullptr;
    QLabel* onboardingBodyLabel_ = nullptr;
    QPushButton* onboardingButton_ = nullptr;

    QVariantAnimation qualityAnimation_;
    int qualityAnimationID_ = 0;  // only the latest expansion or collapse may finish
    bool showsCustomControls_ = false;
    std::optional<AppLanguage> lastRenderedLanguage_;
    std::optional<bool> lastShowsOnboarding_;
};

}  // namespace velt::ui
