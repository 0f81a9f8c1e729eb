#include "ui/desktop_presenter.h"

#include "model/constants.h"
#include "model/native_log.h"
#include "ui/file_reveal.h"

#include <QDesktopServices>
#include <QFileDialog>
#include <QMessageBox>
#include <QPushButton>
#include <QUrl>

namespace velt::ui {
namespace {

// The window a dialog belongs to: the given one while it is on screen, else none.
QWidget* sheetParent(QObject* window) {
    auto* widget = qobject_cast<QWidget*>(window);
    return widget && widget->isVisible() ? widget->window() : nullptr;
}

void prepare(QMessageBox& box, QWidget* parent) {
    box.setWindowTitle(appName);
    if (parent) box.setWindowModality(Qt::WindowModal);
}

}  // namespace

void DesktopPresenter::showAlert(const QString& message, const QString& informativeText,
                                 const QString& button, QObject* window) {
    QWidget* parent = sheetParent(window);
    QMessageBox box(QMessageBox::Information, appName, message, QMessageBox::NoButton, parent);
    prepare(box, parent);
    box.setInformativeText(informativeText);
    box.addButton(button, QMessageBox::AcceptRole);
    box.exec();
}

bool DesktopPresenter::confirm(const QString& message, const QString& informativeText,
                               const QString& confirmButton, const QString& cancelButton,
                               QObject* window) {
    QWidget* parent = sheetParent(window);
    QMessageBox box(QMessageBox::Warning, appName, message, QMessageBox::NoButton, parent);
    prepare(box, parent);
    box.setInformativeText(informativeText);
    QPushButton* confirmed = box.addButton(confirmButton, QMessageBox::AcceptRole);
    QPushButton* cancelled = box.addButton(cancelButton, QMessageBox::RejectRole);
    box.setDefaultButton(confirmed);
    box.setEscapeButton(cancelled);
    box.exec();
    return box.clickedButton() == confirmed;
}

void DesktopPresenter::showInFileBrowser(const QString& path, std::function<void()> notShown) {
    showInFileManager(path, std::move(notShown));
}

void DesktopPresenter::openURL(const QString& url) {
    if (!QDesktopServices::openUrl(QUrl(url)))
        NativeLog::write(QStringLiteral("Could not open ") + url);
}

std::optional<QString> DesktopPresenter::chooseFolder(const QString& title,
                                                      const QString& startFolder, QObject* window) {
    QWidget* parent = sheetParent(window);
    QFileDialog dialog(parent, title, startFolder);
    dialog.setFileMode(QFileDialog::Directory);
    dialog.setOption(QFileDialog::ShowDirsOnly);
    if (parent) dialog.setWindowModality(Qt::WindowModal);
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return std::nullopt;
    return dialog.selectedFiles().constFirst();
}

}  // namespace velt::ui
