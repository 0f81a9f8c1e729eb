#include "ui/popover_view_controller.h"

#include "app/app_store.h"
#include "model/constants.h"
#include "model/settings.h"
#include "ui/group_view.h"
#include "ui/layout.h"
#include "ui/menu_icons.h"
#include "ui/popup_helpers.h"
#include "ui/row_button.h"
#include "ui/stack_rows.h"
#include "ui/switch_control.h"

#include <QComboBox>
#include <QCoreApplication>
#include <QFileInfo>
#include <QLabel>
#include <QPushButton>
#include <QSlider>
#include <QVBoxLayout>
#include <algorithm>

namespace velt::ui {
namespace {

constexpr std::array<ImageFormat, 5> qualityFormats = {
    ImageFormat::jpeg, ImageFormat::png, ImageFormat::webp, ImageFormat::avif, ImageFormat::heic};

int& qualityField(QualitySettings& qualities, int index) {
    switch (index) {
        case 0:
            return qualities.jpeg;
        case 1:
            return qualities.png;
        case 2:
            return qualities.webp;
        case 3:
            return qualities.avif;
    }
    return qualities.heic;
}

QLabel* wrappedLabel(double pixelSize, QFont::Weight weight, QWidget* parent) {
    auto* label = new QLabel(parent);
    label->setFont(uiFont(pixelSize, weight));
    label->setTextFormat(Qt::PlainText);
    label->setWordWrap(true);
    return label;
}

}  // namespace

PopoverViewController::PopoverViewController(AppStore& store, Callbacks callbacks, QWidget* parent)
    : QWidget(parent), store_(store), callbacks_(std::move(callbacks)) {
    auto* root = new QVBoxLayout(this);
    root->setContentsMargins(contentInset, contentInset, contentInset, contentInset);
    root->setSpacing(0);
    buildMain();
    buildOnboarding();
    root->addWidget(mainContainer_);
    root->addWidget(onboardingContainer_);
    qualityAnimation_.setDuration(220);
    qualityAnimation_.setEasingCurve(QEasingCurve::InOutCubic);
    connect(&qualityAnimation_, &QVariantAnimation::valueChanged, this, [this](const QVariant& v) {
        qualityGroupContainer_->setFixedHeight(v.toInt());
        if (callbacks_.onContentSizeChanged) callbacks_.onContentSizeChanged();
    });
    render();
}

void PopoverViewController::buildMain() {
    mainContainer_ = new QWidget(this);
    mainContainer_->setFixedWidth(contentWidth);
    auto* stack = new QVBoxLayout(mainContainer_);
    stack->setContentsMargins(0, 0, 0, 0);
    stack->setSpacing(8);

    titleLabel_ = new QLabel(appName, mainContainer_);
    titleLabel_->setFont(uiFont(12.5, QFont::DemiBold));
    titleLabel_->setContentsMargins(8, 2, 8, 0);
    stack->addWidget(titleLabel_);

    compressionSwitchRow_ = new SwitchRow(QString(), mainContainer_);
    connect(compressionSwitchRow_->control(), &QAbstractButton::clicked, this,
            [this] { toggleCompression(); });
    stack->addWidget(new GroupView(GroupStyle::panel, {compressionSwitchRow_}, mainContainer_));

    errorLabel_ = wrappedLabel(10.5, QFont::Normal, mainContainer_);
    errorLabel_->setContentsMargins(8, 0, 8, 0);
    QPalette warning = errorLabel_->palette();
    warning.setColor(QPalette::WindowText, QColor(0xd9, 0x3b, 0x30));
    errorLabel_->setPalette(warning);
    stack->addWidget(errorLabel_);

    folderRow_ = new RowButton(QString(), QString(), true, QStringLiteral("folder-open"),
                               QStringLiteral("folder"), true, [this] {
                                   if (callbacks_.onSelectWatchDirectory)
                                       callbacks_.onSelectWatchDirectory();
                               });
    stack->addWidget(new GroupView(GroupStyle::panel, {folderRow_}, mainContainer_));

    presetRow_ = new PopupRow(QString(), QStringLiteral("shrink"),
                              QStringLiteral("arrow.down.right.and.arrow.up.left"));
    formatRow_ = new PopupRow(QString(), QStringLiteral("files"), QStringLiteral("doc.on.doc"));
    originalRow_ =
        new PopupRow(QString(), QStringLiteral("folder-check"), QStringLiteral("checkmark.square"));
    connect(presetRow_->popup(), &QComboBox::activated, this, [this] { choosePreset(); });
    connect(formatRow_->popup(), &QComboBox::activated, this, [this] { chooseFormat(); });
    connect(originalRow_->popup(), &QComboBox::activated, this, [this] { chooseOriginal(); });
    std::vector<QWidget*> qualityWidgets;
    const QStringList names = {QStringLiteral("JPEG"), QStringLiteral("PNG"),
                               QStringLiteral("WebP"), QStringLiteral("AVIF"),
                               QStringLiteral("HEIC")};
    for (int i = 0; i < 5; ++i) {
        qualityRows_[i] = new QualityRow(names[i], 75);
        qualityRows_[i]->onChange = [this, i] { qualityChanged(i); };
        qualityWidgets.push_back(qualityRows_[i]);
    }
    qualityGroupContainer_ =
        new CollapsibleContainerView(new GroupView(GroupStyle::plain, qualityWidgets));
    qualityGroupContainer_->setFixedHeight(0);
    stack->addWidget(new GroupView(GroupStyle::panel,
                                   {presetRow_, formatRow_, originalRow_, qualityGroupContainer_},
                                   mainContainer_));

    const auto callback = [](const std::function<void()>& f) {
        return [f] {
            if (f) f();
        };
    };
    openFolderRow_ =
        new RowButton(QString(), QString(), false, QStringLiteral("folder"),
                      QStringLiteral("folder"), true, [this] { store_.openWatchDirectory(); });
    historyRow_ = new RowButton(QString(), QString(), false, QStringLiteral("files"),
                                QStringLiteral("clock.arrow.circlepath"), true,
                                callback(callbacks_.onOpenHistory));
    settingsRow_ =
        new RowButton(QString(), QString(), false, QStringLiteral("settings"),
                      QStringLiteral("gearshape"), false, callback(callbacks_.onOpenSettings));
    websiteRow_ = new RowButton(QString(), QString(), false, QStringLiteral("arrow-up-right"),
                                QStringLiteral("safari"), true, [this] { store_.openWebsite(); });
    quitRow_ = new RowButton(QString(), QString(), false, QStringLiteral("close"),
                             QStringLiteral("xmark"), false, callback(callbacks_.onQuit));
    stack->addWidget(new GroupView(
        GroupStyle::plain, {openFolderRow_, historyRow_, settingsRow_, websiteRow_, quitRow_},
        mainContainer_));
    stack->addStretch(1);
}

void PopoverViewController::buildOnboarding() {
    onboardingContainer_ = new QWidget(this);
    onboardingContainer_->setFixedWidth(contentWidth);
    auto* stack = new QVBoxLayout(onboardingContainer_);
    stack->setContentsMargins(14, 0, 14, 0);
    stack->setSpacing(10);
    stack->addStretch(1);
    auto* icon = new QLabel(onboardingContainer_);
    icon->setPixmap(menuIconImage(QStringLiteral("folder-plus"),
                                  QStringLiteral("folder.badge.plus"), 40,
                                  secondaryLabelColor(palette()), devicePixelRatioF()));
    icon->setAlignment(Qt::AlignCenter);
    icon->setAccessibleName(QString());
    stack->addWidget(icon);
    onboardingTitleLabel_ = wrappedLabel(15, QFont::DemiBold, onboardingContainer_);
    onboardingTitleLabel_->setAlignment(Qt::AlignCenter);
    stack->addWidget(onboardingTitleLabel_);
    onboardingBodyLabel_ = wrappedLabel(11.5, QFont::Normal, onboardingContainer_);
    onboardingBodyLabel_->setAlignment(Qt::AlignCenter);
    QPalette secondary = onboardingBodyLabel_->palette();
    secondary.setColor(QPalette::WindowText, secondaryLabelColor(palette()));
    onboardingBodyLabel_->setPalette(secondary);
    stack->addWidget(onboardingBodyLabel_);
    onboardingButton_ = new QPushButton(onboardingContainer_);
    onboardingButton_->setFont(uiFont(13, QFont::Medium));
    onboardingButton_->setMinimumHeight(34);
    onboardingButton_->setDefault(true);
    onboardingButton_->setAutoDefault(true);
    connect(onboardingButton_, &QPushButton::clicked, this, [this] {
        if (callbacks_.onSelectWatchDirectory) callbacks_.onSelectWatchDirectory();
    });
    stack->addSpacing(4);
    stack->addWidget(onboardingButton_);
    stack->addStretch(1);
}

std::vector<RowButton*> PopoverViewController::actionRows() const {
    return {openFolderRow_, historyRow_, settingsRow_, websiteRow_, quitRow_};
}

void PopoverViewController::applyTexts(AppLanguage language) {
    const auto t = [language](Text id) { return text(language, id); };
    compressionSwitchRow_->setTitleText(t(Text::panelCompressAutomatically));
    folderRow_->setTitleText(t(Text::panelChangeFolder));
    presetRow_->setTitleText(t(Text::panelCompressionLevel));
    formatRow_->setTitleText(t(Text::panelOutputFormat));
    originalRow_->setTitleText(t(Text::panelOriginal));
    openFolderRow_->setTitleText(t(Text::panelOpenFolder));
    historyRow_->setTitleText(t(Text::panelHistory));
    settingsRow_->setTitleText(t(Text::panelSettings));
    websiteRow_->setTitleText(t(Text::panelOpenWebsite));
    quitRow_->setTitleText(text(language, Text::panelQuit, {appName}));
    onboardingTitleLabel_->setText(t(Text::onboardingTitle));
    onboardingBodyLabel_->setText(t(Text::onboardingBody));
    onboardingButton_->setText(t(Text::onboardingButton));
    fillPopups(language);
}

void PopoverViewController::fillPopups(AppLanguage language) {
    const AppConfig& config = store_.config();
    QStringList titles, values;
    for (const CompressionPreset preset : presetMenuCases()) {
        titles << title(preset, language);
        values << rawValue(preset);
    }
    fillPopup(presetRow_->popup(), titles, values, rawValue(config.preset));
    titles.clear();
    values.clear();
    for (const FormatStrategy strategy : formatStrategyMenuCases()) {
        titles << title(strategy, language);
        values << rawValue(strategy);
    }
    fillPopup(formatRow_->popup(), titles, values, rawValue(config.formatStrategy));
    titles.clear();
    values.clear();
    for (const OriginalPolicy policy : {OriginalPolicy::keep, OriginalPolicy::replace}) {
        titles << title(policy, language);
        values << rawValue(policy);
    }
    fillPopup(originalRow_->popup(), titles, values, rawValue(config.originalPolicy));
    // One width for the group, so that the pop-ups stay aligned under each other.
    const int width = std::max({presetRow_->fittingPopupWidth(), formatRow_->fittingPopupWidth(),
                                originalRow_->fittingPopupWidth()});
    for (PopupRow* row : {presetRow_, formatRow_, originalRow_}) row->setPopupWidth(width);
}

void PopoverViewController::render() {
    const AppConfig& config = store_.config();
    if (lastRenderedLanguage_ != config.language) {
        applyTexts(config.language);
        lastRenderedLanguage_ = config.language;
    }
    selectPopup(presetRow_->popup(), rawValue(config.preset));
    selectPopup(formatRow_->popup(), rawValue(config.formatStrategy));
    selectPopup(originalRow_->popup(), rawValue(config.originalPolicy));
    compressionSwitchRow_->control()->setChecked(store_.isRunning());
    folderRow_->setSubtitleText(config.watchDirectory ? QFileInfo(*config.watchDirectory).fileName()
                                                      : QString());
    const QString error =
        store_.watcherError() ? store_.watcherError()->inLanguage(config.language) : QString();
    errorLabel_->setText(error);
    errorLabel_->setVisible(!error.isEmpty());
    for (int i = 0; i < 5; ++i)
        qualityRows_[i]->setValue(config.qualities.quality(qualityFormats[i]));
    renderQualityBlock(lastShowsOnboarding_.has_value());
    const bool onboarding = !config.watchDirectory;
    if (lastShowsOnboarding_ != onboarding) showOnboarding(onboarding);
}

void PopoverViewController::renderQualityBlock(bool animated) {
    const bool custom = store_.config().preset == CompressionPreset::custom;
    if (custom == showsCustomControls_) return;  // shown, or an animation already goes there
    showsCustomControls_ = custom;
    const int target = custom ? qualityGroupContainer_->naturalHeight() : 0;
    const int id = ++qualityAnimationID_;
    qualityAnimation_.stop();
    if (!animated) {
        qualityGroupContainer_->setFixedHeight(target);
        if (callbacks_.onContentSizeChanged) callbacks_.onContentSizeChanged();
        return;
    }
    qualityAnimation_.setStartValue(qualityGroupContainer_->height());
    qualityAnimation_.setEndValue(target);
    disconnect(&qualityAnimation_, &QAbstractAnimation::finished, this, nullptr);
    connect(&qualityAnimation_, &QAbstractAnimation::finished, this, [this, id, target] {
        if (id != qualityAnimationID_) return;  // a newer expansion or collapse took over
        qualityGroupContainer_->setFixedHeight(target);
        if (callbacks_.onContentSizeChanged) callbacks_.onContentSizeChanged();
    });
    qualityAnimation_.start();
}

void PopoverViewController::showOnboarding(bool onboarding) {
    lastShowsOnboarding_ = onboarding;
    mainContainer_->setVisible(!onboarding);
    onboardingContainer_->setVisible(onboarding);
    if (onboarding) onboardingButton_->setFocus();
    if (callbacks_.onContentSizeChanged) callbacks_.onContentSizeChanged();
}

QSize PopoverViewController::currentContentSize() const {
    if (showsOnboarding()) return {popoverWidth, popoverHeight};
    // Nested cards recompute their size only when their pending layout requests run.
    QCoreApplication::sendPostedEvents(nullptr, QEvent::LayoutRequest);
    QLayout* layout = mainContainer_->layout();
    layout->invalidate();
    const int height = layout->hasHeightForWidth() ? layout->totalHeightForWidth(contentWidth)
                                                   : layout->totalSizeHint().height();
    return {popoverWidth, height + 2 * contentInset};
}

void PopoverViewController::toggleCompression() {
    if (store_.isRunning())
        store_.stop();
    else
        store_.start();
    render();
}

void PopoverViewController::choosePreset() {
    const auto value = selectedValue(presetRow_->popup());
    const auto preset = value ? compressionPresetFromRawValue(*value) : std::nullopt;
    if (!preset || *preset == store_.config().preset) return;
    AppConfig config = store_.config();
    // A named preset stands for its own numbers; the user's own are kept aside for custom,
    // which comes back with them (or, the first time, starts from the numbers in effect).
    if (config.preset == CompressionPreset::custom) config.customQualities = config.qualities;
    config.preset = *preset;
    config.qualities = *preset == CompressionPreset::custom
                           ? config.customQualities.value_or(config.qualities)
                           : defaults(*preset);
    store_.setConfig(config);
}

void PopoverViewController::chooseFormat() {
    const auto value = selectedValue(formatRow_->popup());
    if (!value) return;
    AppConfig config = store_.config();
    config.formatStrategy = formatStrategyFromStoredText(*value);
    if (config.formatStrategy != store_.config().formatStrategy) store_.setConfig(config);
}

void PopoverViewController::chooseOriginal() {
    const auto value = selectedValue(originalRow_->popup());
    if (!value) return;
    AppConfig config = store_.config();
    config.originalPolicy = originalPolicyFromStoredText(*value);
    if (config.originalPolicy != store_.config().originalPolicy) store_.setConfig(config);
}

void PopoverViewController::qualityChanged(int index) {
    AppConfig config = store_.config();
    qualityField(config.qualities, index) = qualityRows_[index]->value();
    if (config.qualities != store_.config().qualities) store_.setConfig(config);
}

}  // namespace velt::ui
