#pragma once

#include <QAbstractButton>
#include <QApplication>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QMessageBox>
#include <QPointer>
#include <QSettings>
#include <QTimer>
#include <QtTest>

// What the tests of the window and the wizards share: the application identity, a private folder
// per test function, and an answerer for the modal message boxes the code under test shows.

inline void uiTestIdentity()
{
    QCoreApplication::setOrganizationName(QStringLiteral("CalderWick"));
    QCoreApplication::setApplicationName(QStringLiteral("VEXA Studio Manager"));
    QCoreApplication::setApplicationVersion(QStringLiteral("5.14.0.0"));
    QSettings::setDefaultFormat(QSettings::IniFormat);
    QApplication::setQuitOnLastWindowClosed(false);
}

// A fresh folder under the test's private HOME, named after the running test function.
inline QString uiTestFolder()
{
    static int counter = 0;
    const QString dir = QStringLiteral("%1/%2-%3-%4")
                            .arg(QDir::homePath(), QString::fromLatin1(QTest::currentTestFunction()),
                                 QString::fromLatin1(QTest::currentDataTag()).replace(QLatin1Char(' '), '_'))
                            .arg(++counter);
    QDir().mkpath(dir);
    return dir;
}

inline QString uiWriteFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        return QString();
    return path;
}

inline QByteArray uiReadFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Answers every modal message box that opens while it lives with `answer` and records its title
// and text. A box can only open inside its own event loop, where the timer fires.
class BoxAnswerer : public QObject
{
public:
    explicit BoxAnswerer(QMessageBox::StandardButton answer = QMessageBox::Ok) : m_answer(answer)
    {
        m_timer.setInterval(10);
        QObject::connect(&m_timer, &QTimer::timeout, [this] { poll(); });
        m_timer.start();
    }
    void setAnswer(QMessageBox::StandardButton answer) { m_answer = answer; }
    QStringList titles() const { return m_titles; }
    QStringList texts() const { return m_texts; }
    void clear()
    {
        m_titles.clear();
        m_texts.clear();
    }

private:
    void poll()
    {
        auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
        if (!box || box == m_last)
            return;
        m_last = box;
        m_titles << box->windowTitle();
        m_texts << box->text();
        QAbstractButton *button = box->button(m_answer);
        if (!button)
            button = box->buttons().value(0);
        if (button)
            button->click();
        else
            box->done(m_answer);
    }

    QTimer m_timer;
    QMessageBox::StandardButton m_answer;
    QPointer<QMessageBox> m_last;
    QStringList m_titles;
    QStringList m_texts;
};
