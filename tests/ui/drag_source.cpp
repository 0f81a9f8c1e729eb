// The file manager's part of a drag, for the desktop session test: a small window that, when the
// mouse is pressed on it, drags the files named on its command line as file URLs and prints how
// the drop was answered ("copy", "move", "link" or "ignore"). It keeps running until it is ended,
// as a file manager does: the target asks for the data after the drop.
#include <QApplication>
#include <QDrag>
#include <QMimeData>
#include <QPainter>
#include <QUrl>
#include <QWidget>
#include <cstdio>

namespace {

class DragSource : public QWidget {
  public:
    explicit DragSource(QList<QUrl> urls) : urls_(std::move(urls)) {
        setWindowTitle(QStringLiteral("drag source"));
        resize(160, 120);
    }

  protected:
    void paintEvent(QPaintEvent*) override { QPainter(this).fillRect(rect(), Qt::darkGreen); }

    void mousePressEvent(QMouseEvent*) override {
        auto* drag = new QDrag(this);
        auto* data = new QMimeData;
        data->setUrls(urls_);
        drag->setMimeData(data);
        const Qt::DropAction action =
            drag->exec(Qt::CopyAction | Qt::MoveAction | Qt::LinkAction, Qt::CopyAction);
        const char* answer = action == Qt::CopyAction   ? "copy"
                             : action == Qt::MoveAction ? "move"
                             : action == Qt::LinkAction ? "link"
                                                        : "ignore";
        std::printf("%s\n", answer);
        std::fflush(stdout);
    }

  private:
    QList<QUrl> urls_;
};

}  // namespace

int main(int argc, char* argv[]) {
    QApplication application(argc, argv);
    QList<QUrl> urls;
    for (int i = 1; i < argc; ++i) urls << QUrl::fromLocalFile(QString::fromLocal8Bit(argv[i]));
    DragSource source(urls);
    source.move(20, 600);
    source.show();
    std::printf("shown\n");
    std::fflush(stdout);
    return QApplication::exec();
}
