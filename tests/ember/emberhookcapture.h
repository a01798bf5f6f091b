#ifndef TESTS_EMBER_EMBERHOOKCAPTURE_H
#define TESTS_EMBER_EMBERHOOKCAPTURE_H

#include "ember/emberhooks.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <cstdlib>

// Hooks for the tests: every error is recorded with its text, and every allocation is counted, so
// that a test can ask which errors a given input raised and whether everything was given back.
struct EmberHookCapture
{
    static QList<int> &errors()
    {
        static QList<int> list;
        return list;
    }
    static QList<QString> &messages()
    {
        static QList<QString> list;
        return list;
    }
    static int &allocations()
    {
        static int count = 0;
        return count;
    }
    static void onThrowError(int error, const char *pMessage)
    {
        errors().append(error);
        messages().append(QString::fromUtf8(pMessage));
    }
    static void onFailAssertion(const char *, int) { errors().append(-1); }
    static void *alloc(size_t size)
    {
        allocations()++;
        return malloc(size);
    }
    static void release(void *p)
    {
        allocations()--;
        free(p);
    }
    static void install()
    {
        ember_init(onThrowError, onFailAssertion, alloc, release);
        clear();
    }
    static void clear()
    {
        errors().clear();
        messages().clear();
    }
};

inline QByteArray bytesOf(const unsigned char *p, int n)
{
    return QByteArray(reinterpret_cast<const char *>(p), n);
}

#endif
