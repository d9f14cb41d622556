// tarvel-test-drag-source: a small window that, when pressed, drags the given files out of
// its own process over XDND, as a file manager would. The desktop tests press it and move
// the pointer with xdotool; XDND needs real motion events on the way to the target.
//
//   tarvel-test-drag-source [--at X,Y] PATH...
//
// It prints what came of the drag when it ends, "copied" when a target took the drop and
// "ignored" when none did, and leaves with status 0 or 1 once the target has the data. Status 2 for bad
// usage, 3 when nobody pressed it within a minute.
#include <QApplication>
#include <QDrag>
#include <QFileInfo>
#include <QMimeData>
#include <QMouseEvent>
#include <QTimer>
#include <QUrl>
#include <QWidget>

#include <cstdio>
#include <optional>

class DragSource final : public QWidget {
public:
    explicit DragSource(const QList<QUrl> &urls)
        : m_urls(urls)
    {
        setWindowTitle(QStringLiteral("Tarvel Test Drag Source"));
        setFixedSize(120, 60);
    }

protected:
    void mousePressEvent(QMouseEvent *event) override
    {
        if (event->button() != Qt::LeftButton || m_dragging)
            return;
        m_dragging = true;
        auto *data = new QMimeData;
        data->setUrls(m_urls);
        auto *drag = new QDrag(this);
        drag->setMimeData(data);
        const bool copied = drag->exec(Qt::CopyAction) == Qt::CopyAction;
        std::puts(copied ? "copied" : "ignored");
        std::fflush(stdout);
        if (!copied) {
            QCoreApplication::exit(1);
            return;
        }
        // The target asks for the data only after the drop, so stay until it says it is done
        // (Qt lets go of the drag then), or a while.
        connect(drag, &QObject::destroyed, qApp, [] { QCoreApplication::exit(0); });
        QTimer::singleShot(5000, qApp, [] { QCoreApplication::exit(0); });
    }

private:
    QList<QUrl> m_urls;
    bool m_dragging = false;
};

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    QStringList arguments = QCoreApplication::arguments().mid(1);
    std::optional<QPoint> position;
    if (arguments.size() >= 2 && arguments.constFirst() == u"--at") {
        const QStringList xy = arguments.at(1).split(u',');
        if (xy.size() != 2)
            return 2;
        position = QPoint(xy.at(0).toInt(), xy.at(1).toInt());
        arguments = arguments.mid(2);
    }
    if (arguments.isEmpty()) {
        std::fputs("usage: tarvel-test-drag-source [--at X,Y] PATH...\n", stderr);
        return 2;
    }
    QList<QUrl> urls;
    for (const QString &path : std::as_const(arguments))
        urls.append(QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath()));

    DragSource source(urls);
    if (position)
        source.move(*position); // a position of our own keeps the window manager's placement out
    source.show();
    // A test that fails before pressing it must not leave it behind.
    QTimer::singleShot(60000, &app, [] { QCoreApplication::exit(3); });
    return app.exec();
}
