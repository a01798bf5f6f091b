#ifndef TESTS_EMBERSERVER_TESTCONSUMER_H
#define TESTS_EMBERSERVER_TESTCONSUMER_H

#include "ember/glowreader.h"
#include "ember/glowtags.h"
#include "ember/glowwriter.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <QTcpSocket>

// A minimal in-process consumer on a real TCP connection: sends commands and parameter writes and
// records what comes back, one entry per element (kind, path, identifier, value) and the S101 flags
// byte of every package. The independent consumer is the Node one; this one exists for the checks
// that need the raw packages.
class TestConsumer
{
public:
    struct Element
    {
        char kind; // 'N' node, 'P' parameter, 'F' function
        QString path;
        QString identifier;
        int fields;
        QString value; // parameters: "i:5", "s:text", "o:hex", "b:1", "-" without value
        int arguments; // functions: number of argument descriptions
    };

    QTcpSocket socket;
    QList<Element> elements;
    QList<int> packageFlags;     // data packages
    QList<QByteArray> keepAlive; // keep-alive packages, unframed

    TestConsumer()
    {
        glowReader_init(&m_reader, onNode, onParameter, nullptr, nullptr, this, m_buffer, sizeof(m_buffer));
        m_reader.base.onFunction = onFunction;
        m_reader.onPackageReceived = onPackage;
        QObject::connect(&socket, &QTcpSocket::readyRead, [this] {
            const QByteArray bytes = socket.readAll();
            glowReader_readBytes(&m_reader, reinterpret_cast<const unsigned char *>(bytes.constData()),
                                 bytes.size());
        });
    }
    ~TestConsumer() { glowReader_free(&m_reader); }

    bool connectTo(quint16 port)
    {
        socket.connectToHost(QHostAddress::LocalHost, port);
        return socket.waitForConnected(5000);
    }

    void clear()
    {
        elements.clear();
        packageFlags.clear();
        keepAlive.clear();
    }

    static QVector<int> pathOf(const QString &text)
    {
        QVector<int> path;
        if (!text.isEmpty())
            for (const QString &n : text.split('.'))
                path.append(n.toInt());
        return path;
    }

    void getDirectory(const QString &path, int mask = 0)
    {
        SGlowCommand command;
        glowCommand_init(&command);
        command.number = GlowCommandType_GetDirectory;
        command.dirFieldMask = mask;
        sendCommand(command, path);
    }

    void invoke(const QString &path, const SGlowValue *argument)
    {
        SGlowCommand command;
        glowCommand_init(&command);
        command.number = GlowCommandType_Invoke;
        command.invocation.invocationId = 1;
        if (argument != nullptr)
            glowInvocation_addArgument(&command.invocation, argument);
        sendCommand(command, path);
        glowCommand_free(&command);
    }

    // A parameter write. With retag, the value's universal tag is replaced by that one, so that
    // values our own writer refuses (ENUMERATED, for one) can be sent.
    void write(const QString &path, const SGlowValue &value, int retag = 0)
    {
        SGlowParameter parameter;
        glowParameter_init(&parameter);
        parameter.value = value;
        const QVector<int> numbers = pathOf(path);
        unsigned char ber[512];
        SBerMemoryOutput element;
        berMemoryOutput_init(&element, ber, sizeof(ber));
        glow_writeQualifiedParameterTo(&element.base, &parameter, GlowFieldFlag_Value, numbers.constData(),
                                       numbers.size());
        QByteArray bytes = QByteArray::fromHex("60806b80") +
                           QByteArray(reinterpret_cast<const char *>(ber), element.position) +
                           QByteArray(4, 0);
        if (retag != 0) {
            const int at = bytes.indexOf(char(0xA2)); // value [2]: the first context tag 2 in a write
            bytes[at + 2] = char(retag);
        }
        static const unsigned char appBytes[] = {0x14, 0x02};
        SBerFramingOutput output;
        berFramingOutput_init(&output, m_out, sizeof(m_out), 0, S101_DTD_GLOW, appBytes, sizeof(appBytes));
        berFramingOutput_writeHeader(&output, S101_FLAG_FIRST | S101_FLAG_LAST);
        berFramingOutput_writeBytes(&output.base.base,
                                    reinterpret_cast<const unsigned char *>(bytes.constData()), bytes.size());
        send(berFramingOutput_finish(&output));
    }

    void sendRaw(const QByteArray &bytes)
    {
        socket.write(bytes);
        socket.flush();
    }

    QStringList summary() const
    {
        QStringList list;
        for (const Element &e : elements)
            list << QString("%1 %2 %3 %4").arg(e.kind).arg(e.path, e.identifier, e.value);
        return list;
    }

private:
    void sendCommand(const SGlowCommand &command, const QString &path)
    {
        const QVector<int> numbers = pathOf(path);
        SGlowOutput output;
        glowOutput_init(&output, m_out, sizeof(m_out), 0);
        glowOutput_beginPackage(&output, true);
        glow_writeQualifiedCommand(&output, &command, numbers.constData(), numbers.size());
        send(glowOutput_finishPackage(&output));
    }

    void send(int length)
    {
        socket.write(reinterpret_cast<const char *>(m_out), length);
        socket.flush();
    }

    static QString pathText(const int *path, int length)
    {
        QStringList parts;
        for (int i = 0; i < length; i++)
            parts << QString::number(path[i]);
        return parts.join('.');
    }

    static void onNode(const SGlowNode *node, EGlowFieldFlags fields, const int *path, int length,
                       void *state)
    {
        static_cast<TestConsumer *>(state)->elements.append(
            {'N', pathText(path, length), QString::fromUtf8(node->pIdentifier), fields, "-", 0});
    }

    static void onFunction(const SGlowFunction *function, EGlowFieldFlags fields, const int *path, int length,
                           void *state)
    {
        static_cast<TestConsumer *>(state)->elements.append({'F', pathText(path, length),
                                                             QString::fromUtf8(function->pIdentifier), fields,
                                                             "-", function->argumentsLength});
    }

    static void onParameter(const SGlowParameter *parameter, EGlowFieldFlags fields, const int *path,
                            int length, void *state)
    {
        QString value = "-";
        if (fields & GlowFieldFlag_Value) {
            const SGlowValue &v = parameter->value;
            switch (v.type) {
            case GlowParameterType_Integer:
                value = QString("i:%1").arg(v.integer);
                break;
            case GlowParameterType_String:
                value = QString("s:%1").arg(QString::fromUtf8(v.pString));
                break;
            case GlowParameterType_Boolean:
                value = QString("b:%1").arg(v.boolean ? 1 : 0);
                break;
            case GlowParameterType_Octets:
                value =
                    "o:" + QString::fromLatin1(
                               QByteArray(reinterpret_cast<const char *>(v.octets.pOctets), v.octets.length)
                                   .toHex());
                break;
            default:
                value = "?";
                break;
            }
        }
        static_cast<TestConsumer *>(state)->elements.append(
            {'P', pathText(path, length), QString::fromUtf8(parameter->pIdentifier), fields, value, 0});
    }

    static void onPackage(const unsigned char *package, int length, void *state)
    {
        auto *self = static_cast<TestConsumer *>(state);
        if (length >= 5 && package[2] == S101_COMMAND_EMBER)
            self->packageFlags.append(package[4]);
        else
            self->keepAlive.append(QByteArray(reinterpret_cast<const char *>(package), length));
    }

    SGlowReader m_reader;
    unsigned char m_buffer[1024];
    unsigned char m_out[1024];
};

#endif
