#include "editor_integration/EditorIntegrationPromptWindow.h"

#include <QApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QStyle>
#include <QVBoxLayout>

#include <utility>

EditorIntegrationPromptWindow::EditorIntegrationPromptWindow(const QString &headline, const QString &message,
                                                             const QString &revealButtonTitle,
                                                             std::function<void()> revealAction,
                                                             QWidget *parent)
    : QDialog(parent)
    , m_revealAction(std::move(revealAction))
{
    setWindowTitle(QApplication::applicationDisplayName() + QStringLiteral(" Editor Setup"));
    setWindowFlag(Qt::WindowStaysOnTopHint);
    setFixedSize(560, 252);

    auto *icon = new QLabel(this);
    const QIcon appIcon = QApplication::windowIcon().isNull()
                              ? style()->standardIcon(QStyle::SP_MessageBoxQuestion)
                              : QApplication::windowIcon();
    icon->setPixmap(appIcon.pixmap(64, 64));
    icon->setAlignment(Qt::AlignTop);

    auto *headlineField = new QLabel(headline, this);
    QFont headlineFont = headlineField->font();
    headlineFont.setBold(true);
    headlineFont.setPointSizeF(headlineFont.pointSizeF() * 1.2);
    headlineField->setFont(headlineFont);
    headlineField->setWordWrap(true);
    auto *messageField = new QLabel(message, this);
    messageField->setWordWrap(true);
    messageField->setAlignment(Qt::AlignTop | Qt::AlignLeft);

    auto *texts = new QVBoxLayout;
    texts->addWidget(headlineField);
    texts->addWidget(messageField, 1);
    auto *top = new QHBoxLayout;
    top->addWidget(icon);
    top->addLayout(texts, 1);

    auto *revealButton = new QPushButton(revealButtonTitle, this);
    auto *suppressButton = new QPushButton(QStringLiteral("Cancel"), this);
    auto *suppressLabel = new QLabel(QStringLiteral("and don't ask again"), this);
    auto *cancelButton = new QPushButton(QStringLiteral("Cancel"), this);
    auto *installButton = new QPushButton(QStringLiteral("Install"), this);
    revealButton->setObjectName(QStringLiteral("revealButton"));
    suppressButton->setObjectName(QStringLiteral("suppressButton"));
    cancelButton->setObjectName(QStringLiteral("cancelButton"));
    installButton->setObjectName(QStringLiteral("installButton"));
    for (QPushButton *button : {revealButton, suppressButton, cancelButton})
        button->setAutoDefault(false);
    installButton->setDefault(true);

    auto *buttons = new QHBoxLayout;
    buttons->addWidget(revealButton);
    buttons->addStretch(1);
    buttons->addWidget(suppressButton);
    buttons->addWidget(suppressLabel);
    buttons->addSpacing(12);
    buttons->addWidget(cancelButton);
    buttons->addWidget(installButton);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 20, 20, 16);
    layout->addLayout(top, 1);
    layout->addLayout(buttons);

    connect(revealButton, &QPushButton::clicked, this, [this] {
        if (m_revealAction)
            m_revealAction();
    });
    connect(suppressButton, &QPushButton::clicked, this, [this] { finishWith(Response::cancelAndSuppress); });
    connect(cancelButton, &QPushButton::clicked, this, [this] { finishWith(Response::cancel); });
    connect(installButton, &QPushButton::clicked, this, [this] { finishWith(Response::install); });
}

EditorIntegrationPromptWindow::Response EditorIntegrationPromptWindow::runModal()
{
    m_response = Response::cancel;
    if (const QScreen *screen = QApplication::primaryScreen())
        move(screen->availableGeometry().center() - rect().center());
    // Modal from its first show: exec() cannot make a window that is already up modal.
    setWindowModality(Qt::ApplicationModal);
    show();
    raise();
    activateWindow();
    exec();
    return m_response;
}

void EditorIntegrationPromptWindow::finishWith(Response response)
{
    m_response = response;
    // Escape and the close box reject without a response, which leaves the plain cancel.
    accept();
}
