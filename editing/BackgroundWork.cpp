#include "editing/BackgroundWork.h"

#include <QCoreApplication>
#include <QThreadPool>

namespace BackgroundWork {

QThreadPool &pool()
{
    // Owned by the application, which waits for what still runs when it ends.
    static QThreadPool *const threads = [] {
        auto *created = new QThreadPool(QCoreApplication::instance());
        created->setMaxThreadCount(2);
        return created;
    }();
    return *threads;
}

} // namespace BackgroundWork
