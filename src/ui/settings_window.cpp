#include "ui/settings_window.h"

#include "app/app_store.h"
#include "app/version.h"
#include "model/constants.h"
#include "ui/history_text.h"
#include "ui/layout.h"
#include "ui/popup_helpers.h"
#include "ui/switch_control.h"
#include "ui/wheel_guard.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QScrollArea>
#include <QVBoxLayout>
#include <algorithm>

namespace velt::ui {
namespace {

constexpr int rowTitleWidth = 150;

// A card of rows in the panel's visual language.
class SettingsCard : public QWidget {
  public:
    explicit SettingsCard(QWidget* parent) : QWidget(parent), rows_(new QVBoxLayout(this)) {
        rows_->setContentsMargins(12, 4, 12, 4);
        rows_->setSpacing(0);
    }
    void addRow(const QString& title, QWidget* control) {
        auto* row = new QWidget(this);
        row->setMinimumHeight(36);
        auto* line = new QHBoxLayout(row);
        line->setContentsMargins(0, 4, 0, 4);
        line->setSpacing(8);
        auto* label = new QLabel(title, row);
        label->setFont(uiFont(13));
        label->setWordWrap(true);
        label->setMinimumWidth(rowTitleWidth);
        label->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
        line->addWidget(label, 1);
        line->addWidget(control, 0, Qt::AlignVCenter | Qt::AlignRight);
        rows_->addWidget(row);
    }
    // A line of its own, without a title.
    void addLine(QWidget* content) {
        content->setContentsMargins(0, 8, 0, 8);
        rows_->addWidget(content);
    }

  protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setBrush(contrastTint(palette(), 0.05));
        painter.setPen(QPen(contrastTint(palette(), 0.1), 0.7));
        painter.drawRoundedRect(QRectF(rect()).adjusted(0.35, 0.35, -0.35, -0.35), 11, 11);
    }

  private:
    QVBoxLayout* rows_;
};

QLabel* sectionTitle(const QString& title, QWidget* parent) {
    auto* label = new QLabel(title, parent);
    label->setFont(uiFont(12, QFont::DemiBold));
    QPalette secondary = label->palette();
    secondary.setColor(QPalette::WindowText, secondaryLabelColor(label->palette()));
    label->setPalette(secondary);
    label->setContentsMargins(4, 0, 0, 0);
    return label;
}

QPushButton* actionButton(const QString& title, QWidget* parent) {
    auto* button = new QPushButton(title, parent);
    button->setFont(uiFont(12.5));
    button->setAutoDefault(false);
    return button;
}

}  // namespace

QString displayVersion(const QString& version) {
    if (version.isEmpty()) return QStringLiteral("1.0");
    return version.endsWith(QLatin1String(".0.0")) ? version.chopped(2) : version;
}

SettingsViewController::SettingsViewController(AppStore& store, QWidget* parent)
    : QWidget(parent), store_(store) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 18, 20, 18);
    render();
}

QPushButton* SettingsViewController::button(const QString& text) const {
    for (QPushButton* candidate : contentHost_->findChildren<QPushButton*>())
        if (candidate->text() == text) return candidate;
    return nullptr;
}

void SettingsViewController::rebuildContent(AppLanguage language) {
    // The change may come from a control inside the old content, still in its own signal: the
    // old content leaves the layout now and is deleted once the event loop has it back.
    if (contentHost_) {
        contentHost_->hide();
        layout()->removeWidget(contentHost_);
        contentHost_->deleteLater();
    }
    contentHost_ = new QWidget(this);
    layout()->addWidget(contentHost_);
    const auto t = [language](Text id) { return text(language, id); };
    auto* stack = new QVBoxLayout(contentHost_);
    stack->setContentsMargins(0, 0, 0, 0);
    stack->setSpacing(0);

    auto* pageTitle = new QLabel(t(Text::settingsTitle), contentHost_);
    pageTitle->setFont(uiFont(18));
    pageTitle->setFixedWidth(320);
    stack->addWidget(pageTitle);
    stack->addSpacing(20);

    const auto section = [&](const QString& name) {
        stack->addWidget(sectionTitle(name, contentHost_));
        stack->addSpacing(12);
        auto* card = new SettingsCard(contentHost_);
        stack->addWidget(card);
        stack->addSpacing(18);
        return card;
    };

    SettingsCard* application = section(t(Text::settingsApplication));
    autostartSwitch_ = new SwitchControl(contentHost_);
    connect(autostartSwitch_, &QAbstractButton::clicked, this,
            [this](bool on) { store_.setAutostart(on); });
    application->addRow(t(Text::settingsLaunchAtLogin), autostartSwitch_);
    languagePopup_ = new QComboBox(contentHost_);
    languagePopup_->setFont(uiFont(12.5));
    acceptWheelOnlyWithFocus(languagePopup_);
    fillPopup(languagePopup_, {title(AppLanguage::russian), title(AppLanguage::english)},
              {rawValue(AppLanguage::russian), rawValue(AppLanguage::english)}, rawValue(language));
    connect(languagePopup_, &QComboBox::activated, this, [this] {
        const auto value = selectedValue(languagePopup_);
        const auto chosen = value ? appLanguageFromRawValue(*value) : std::nullopt;
        if (chosen && *chosen != store_.config().language) store_.setLanguage(*chosen);
    });
    application->addRow(t(Text::settingsLanguage), languagePopup_);

    SettingsCard* menuBar = section(t(Text::settingsMenuBar));
    menuBarProgressSwitch_ = new SwitchControl(contentHost_);
    connect(menuBarProgressSwitch_, &QAbstractButton::clicked, this,
            [this](bool on) { store_.setShowMenuBarProgress(on); });
    menuBar->addRow(t(Text::settingsProgress), menuBarProgressSwitch_);
    notificationsSwitch_ = new SwitchControl(contentHost_);
    connect(notificationsSwitch_, &QAbstractButton::clicked, this,
            [this](bool on) { store_.setNotificationsEnabled(on); });
    menuBar->addRow(t(Text::settingsNotifications), notificationsSwitch_);

    SettingsCard* files = section(t(Text::settingsFiles));
    QPushButton* change = actionButton(t(Text::settingsChange), contentHost_);
    connect(change, &QPushButton::clicked, this, [this] { store_.selectWatchDirectory(this); });
    files->addRow(t(Text::settingsFolder), change);
    metadataPopup_ = new QComboBox(contentHost_);
    metadataPopup_->setFont(uiFont(12.5));
    acceptWheelOnlyWithFocus(metadataPopup_);
    // Wide enough for its longest choice (the default one, in Russian), which widens the window.
    metadataPopup_->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    QStringList metadataTitles, metadataValues;
    for (const MetadataPolicy policy : metadataPolicyMenuCases()) {
        metadataTitles << title(policy, language);
        metadataValues << rawValue(policy);
    }
    fillPopup(metadataPopup_, metadataTitles, metadataValues,
              rawValue(store_.config().metadataPolicy));
    connect(metadataPopup_, &QComboBox::activated, this, [this] {
        const auto value = selectedValue(metadataPopup_);
        const auto chosen = value ? metadataPolicyFromRawValue(*value) : std::nullopt;
        if (!chosen || *chosen == store_.config().metadataPolicy) return;
        AppConfig config = store_.config();
        config.metadataPolicy = *chosen;
        store_.setConfig(config);
    });
    files->addRow(t(Text::settingsMetadata), metadataPopup_);
    auto* backups = new QWidget(contentHost_);
    auto* backupButtons = new QHBoxLayout(backups);
    backupButtons->setContentsMargins(0, 0, 0, 0);
    backupButtons->setSpacing(6);
    QPushButton* open = actionButton(t(Text::buttonOpen), backups);
    connect(open, &QPushButton::clicked, this, [this] { store_.openBackupDirectory(); });
    QPushButton* clear = actionButton(t(Text::buttonClear), backups);
    connect(clear, &QPushButton::clicked, this, [this] { store_.clearBackups(this); });
    backupButtons->addWidget(open);
    backupButtons->addWidget(clear);
    files->addRow(t(Text::settingsBackups), backups);
    retentionPopup_ = new QComboBox(contentHost_);
    retentionPopup_->setFont(uiFont(12.5));
    acceptWheelOnlyWithFocus(retentionPopup_);
    retentionPopup_->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    QStringList retentionTitles, retentionValues;
    for (const int days : backupRetentionChoices) {
        retentionTitles << (days == 0
                                ? text(language, Text::settingsKeepForever)
                                : text(language, Text::settingsKeepDays, {QString::number(days)}));
        retentionValues << QString::number(days);
    }
    fillPopup(retentionPopup_, retentionTitles, retentionValues,
              QString::number(store_.config().backupRetentionDays));
    connect(retentionPopup_, &QComboBox::activated, this, [this] {
        const int days = selectedValue(retentionPopup_).value_or(QString()).toInt();
        if (days == store_.config().backupRetentionDays) return;
        AppConfig config = store_.config();
        config.backupRetentionDays = days;
        store_.setConfig(config);
        showBackupUsage();
    });
    files->addRow(t(Text::settingsKeepBackups), retentionPopup_);
    backupUsageLabel_ = new QLabel(contentHost_);
    backupUsageLabel_->setFont(uiFont(12));
    files->addLine(backupUsageLabel_);
    showBackupUsage();
    QPushButton* again = actionButton(t(Text::settingsCompressAgain), contentHost_);
    connect(again, &QPushButton::clicked, this, [this] { store_.compressFolderAgain(this); });
    files->addLine(again);

    SettingsCard* about = section(t(Text::settingsAbout));
    auto* version = new QLabel(
        appName + QLatin1Char(' ') + displayVersion(QString::fromUtf8(veltVersion)), contentHost_);
    version->setFont(uiFont(13, QFont::Medium));
    about->addLine(version);
    updateButton_ = actionButton(store_.updateButtonTitle(), contentHost_);
    connect(updateButton_, &QPushButton::clicked, this, [this] { store_.checkUpdates(this); });
    about->addRow(t(Text::settingsCheckUpdates), updateButton_);
    QPushButton* website = actionButton(t(Text::buttonOpen), contentHost_);
    website->setObjectName(QStringLiteral("website"));
    connect(website, &QPushButton::clicked, this, [this] { store_.openWebsite(); });
    about->addRow(t(Text::settingsWebsite), website);
    stack->addStretch(1);
    contentHost_->show();
}

void SettingsViewController::render() {
    const AppConfig& config = store_.config();
    if (lastRenderedLanguage_ != config.language) {
        rebuildContent(config.language);
        lastRenderedLanguage_ = config.language;
    }
    autostartSwitch_->setChecked(config.autostart);
    menuBarProgressSwitch_->setChecked(config.showMenuBarProgress);
    notificationsSwitch_->setChecked(config.notificationsEnabled);
    selectPopup(languagePopup_, rawValue(config.language));
    selectPopup(metadataPopup_, rawValue(config.metadataPolicy));
    selectPopup(retentionPopup_, QString::number(config.backupRetentionDays));
    updateButton_->setText(store_.updateButtonTitle());
    updateButton_->setAccessibleName(store_.updateButtonTitle());
    updateButton_->setEnabled(!store_.isUpdateBusy());
}

SettingsWindowController::SettingsWindowController(AppStore& store)
    : store_(store), window_(std::make_unique<QWidget>()) {
    window_->setMinimumSize(360, 545);
    auto* layout = new QVBoxLayout(window_.get());
    layout->setContentsMargins(0, 0, 0, 0);
    // Scrolls rather than squeezes its rows when the window is made smaller than its content.
    auto* scroll = new QScrollArea(window_.get());
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidgetResizable(true);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    view_ = new SettingsViewController(store, scroll);
    scroll->setWidget(view_);
    layout->addWidget(scroll);
    render();
}

// Rows in another language need another width (Russian runs longer): the window grows to show
// every control whole, and never shrinks under the user.
void SettingsWindowController::fitToContent() {
    view_->layout()->activate();
    const QSize preferred = view_->sizeHint();
    const QSize needed = window_->minimumSize().expandedTo(
        QSize(std::max(400, preferred.width()), preferred.height() + 8));
    window_->resize(fittedLanguage_ ? window_->size().expandedTo(needed) : needed);
}

SettingsWindowController::~SettingsWindowController() = default;

void SettingsWindowController::render() {
    const AppLanguage language = store_.config().language;
    window_->setWindowTitle(text(language, Text::settingsTitle));
    view_->render();
    if (fittedLanguage_ == language) return;
    fitToContent();
    fittedLanguage_ = language;
}

void SettingsViewController::showBackupUsage() {
    const BackupUsage usage = store_.backupUsage();
    const AppLanguage language = store_.config().language;
    backupUsageLabel_->setText(
        text(language, Text::settingsBackupsSize,
             {QString::number(usage.files), historyByteCount(usage.bytes, language)}));
}

void SettingsWindowController::showWindow() {
    render();
    view_->showBackupUsage();
    window_->show();
    window_->raise();
    window_->activateWindow();
}

}  // namespace velt::ui
