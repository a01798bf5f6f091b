#ifndef TESTS_EMBER_GLOWLOG_H
#define TESTS_EMBER_GLOWLOG_H

#include "ember/glowdecoder.h"

#include <QStringList>

// Turns decoded Glow elements into one line of text each, so that whole decoding runs can be
// compared: the same formatter gives the expected lines from the records that were written.
namespace GlowLog {

inline QString path(const int *p, int n)
{
    QStringList parts;
    for (int i = 0; i < n; i++)
        parts << QString::number(p[i]);
    return parts.join('.');
}

inline QString value(const SGlowValue &v)
{
    switch (v.type) {
    case GlowParameterType_Integer:
        return QString("int:%1").arg(v.integer);
    case GlowParameterType_Real:
        return QString("real:%1").arg(v.real, 0, 'g', 17);
    case GlowParameterType_String:
        return QString("str:'%1'").arg(QString::fromUtf8(v.pString ? v.pString : "(null)"));
    case GlowParameterType_Boolean:
        return QString("bool:%1").arg(v.boolean);
    case GlowParameterType_Octets:
        return QString("oct:%1").arg(QString::fromLatin1(
            QByteArray(reinterpret_cast<const char *>(v.octets.pOctets), v.octets.length).toHex()));
    default:
        return QString("type%1").arg(v.type);
    }
}

inline QString minMax(const SGlowMinMax &v)
{
    return v.type == GlowParameterType_Real ? QString("real:%1").arg(v.real)
                                            : QString("int:%1").arg(v.integer);
}

inline QString text(const char *p)
{
    return p ? QString::fromUtf8(p) : QString("(null)");
}

inline QString parameter(const SGlowParameter &p, int fields, const int *pPath, int n)
{
    QString s = QString("P %1 fields=%2").arg(path(pPath, n)).arg(fields, 0, 16);
    if (fields & GlowFieldFlag_Identifier)
        s += " id=" + text(p.pIdentifier);
    if (fields & GlowFieldFlag_Description)
        s += " desc=" + text(p.pDescription);
    if (fields & GlowFieldFlag_Value)
        s += " value=" + value(p.value);
    if (fields & GlowFieldFlag_Minimum)
        s += " min=" + minMax(p.minimum);
    if (fields & GlowFieldFlag_Maximum)
        s += " max=" + minMax(p.maximum);
    if (fields & GlowFieldFlag_Access)
        s += QString(" access=%1").arg(p.access);
    if (fields & GlowFieldFlag_Factor)
        s += QString(" factor=%1").arg(p.factor);
    if (fields & GlowFieldFlag_IsOnline)
        s += QString(" online=%1").arg(p.isOnline);
    if (fields & GlowFieldFlag_Step)
        s += QString(" step=%1").arg(p.step);
    if (fields & GlowFieldFlag_Type)
        s += QString(" type=%1").arg(p.type);
    if (fields & GlowFieldFlag_StreamIdentifier)
        s += QString(" stream=%1").arg(p.streamIdentifier);
    return s;
}

inline QString node(const SGlowNode &p, int fields, const int *pPath, int n)
{
    QString s = QString("N %1 fields=%2").arg(path(pPath, n)).arg(fields, 0, 16);
    if (fields & GlowFieldFlag_Identifier)
        s += " id=" + text(p.pIdentifier);
    if (fields & GlowFieldFlag_Description)
        s += " desc=" + text(p.pDescription);
    if (fields & GlowFieldFlag_IsRoot)
        s += QString(" root=%1").arg(p.isRoot);
    if (fields & GlowFieldFlag_IsOnline)
        s += QString(" online=%1").arg(p.isOnline);
    return s;
}

inline QString tuple(const SGlowTupleItemDescription *p, int n)
{
    QStringList items;
    for (int i = 0; i < n; i++)
        items << QString("%1:%2").arg(p[i].type).arg(text(p[i].pName));
    return "[" + items.join(',') + "]";
}

inline QString function(const SGlowFunction &p, const int *pPath, int n)
{
    return QString("F %1 id=%2 desc=%3 args=%4 result=%5")
        .arg(path(pPath, n), text(p.pIdentifier), text(p.pDescription),
             tuple(p.pArguments, p.argumentsLength), tuple(p.pResult, p.resultLength));
}

inline QString command(const SGlowCommand &c, const int *pPath, int n)
{
    QString s = QString("C %1 number=%2 mask=%3").arg(path(pPath, n)).arg(c.number).arg(c.dirFieldMask);
    if (c.number == 33) {
        QStringList args;
        for (int i = 0; i < c.invocation.argumentsLength; i++)
            args << value(c.invocation.pArguments[i]);
        s += QString(" invocation=%1 args=[%2]").arg(c.invocation.invocationId).arg(args.join(','));
    }
    return s;
}

// Callbacks that append to the QStringList given as state.
inline void onParameter(const SGlowParameter *p, EGlowFieldFlags f, const int *pPath, int n, void *state)
{
    static_cast<QStringList *>(state)->append(parameter(*p, f, pPath, n));
}
inline void onNode(const SGlowNode *p, EGlowFieldFlags f, const int *pPath, int n, void *state)
{
    static_cast<QStringList *>(state)->append(node(*p, f, pPath, n));
}
inline void onFunction(const SGlowFunction *p, EGlowFieldFlags, const int *pPath, int n, void *state)
{
    static_cast<QStringList *>(state)->append(function(*p, pPath, n));
}
inline void onCommand(const SGlowCommand *c, const int *pPath, int n, void *state)
{
    static_cast<QStringList *>(state)->append(command(*c, pPath, n));
}

} // namespace GlowLog

#endif
