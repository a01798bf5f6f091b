// Test helper for the interoperability test with an independent Ember+ implementation.
//
//   ember_peer_tool write <dir>   writes S101 streams made by our writer:
//       tree.s101       one multi-package Glow message with nodes, parameters of every value
//                       type but real, and a function with its arguments;
//       real.s101       one parameter with the real value 3.0 (our REAL form, see ber_encodeReal);
//       keepalive.s101  a keep-alive request and a keep-alive response for slot 0.
//   ember_peer_tool read <file>   decodes an S101 stream with our Glow reader and prints one line
//       per element or command (the format of tests/ember/glowlog.h), and "K <hex>" for every
//       package that is not Glow data.
//
// Errors of the Ember+ layers are printed to stderr as "error <code> <text>".

#include "ember/emberhooks.h"
#include "ember/glowreader.h"
#include "ember/glowwriter.h"
#include "glowlog.h"

#include <QByteArray>
#include <QFile>
#include <QTextStream>
#include <cstdio>
#include <cstring>

static void onThrowError(int error, const char *pMessage)
{
    fprintf(stderr, "error %d %s\n", error, pMessage);
}

static bool writeFile(const QString &fileName, const QByteArray &bytes)
{
    QFile file(fileName);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

struct Package
{
    SGlowOutput output;
    unsigned char buffer[512];
    QByteArray *pStream;

    Package(QByteArray *pStream_) : pStream(pStream_) { glowOutput_init(&output, buffer, sizeof(buffer), 0); }
    void begin(bool isLast) { glowOutput_beginPackage(&output, isLast); }
    void finish()
    {
        const int length = glowOutput_finishPackage(&output);
        pStream->append(reinterpret_cast<const char *>(buffer), length);
    }
};

static SGlowValue stringValue(const char *p)
{
    SGlowValue value;
    glowValue_init(&value);
    value.type = GlowParameterType_String;
    value.pString = const_cast<char *>(p);
    return value;
}

static int writeFiles(const QString &dir)
{
    QByteArray tree;
    Package package(&tree);

    SGlowNode root;
    glowNode_init(&root);
    root.pIdentifier = const_cast<char *>("root");
    root.pDescription = const_cast<char *>("root");
    const int rootPath[] = {0};
    package.begin(false);
    glow_writeQualifiedNode(&package.output, &root,
                            EGlowFieldFlags(GlowFieldFlag_Identifier | GlowFieldFlag_Description), rootPath,
                            1);
    package.finish();

    SGlowParameter product;
    glowParameter_init(&product);
    product.pIdentifier = const_cast<char *>("product");
    product.pDescription = const_cast<char *>("Product Name");
    product.value = stringValue("Vexa Studio");
    product.access = GlowAccess_Read;
    const int productPath[] = {0, 0, 0};
    package.begin(false);
    glow_writeQualifiedParameter(&package.output, &product,
                                 EGlowFieldFlags(GlowFieldFlag_Identifier | GlowFieldFlag_Description |
                                                 GlowFieldFlag_Value | GlowFieldFlag_Access),
                                 productPath, 3);
    package.finish();

    SGlowParameter group;
    glowParameter_init(&group);
    group.pIdentifier = const_cast<char *>("group");
    group.pDescription = const_cast<char *>("group tag number");
    group.value.type = GlowParameterType_Integer;
    group.value.integer = 1;
    group.minimum.type = GlowParameterType_Integer;
    group.maximum.type = GlowParameterType_Integer;
    group.maximum.integer = 12;
    group.access = GlowAccess_ReadWrite;
    const int groupPath[] = {0, 0, 6};
    package.begin(false);
    glow_writeQualifiedParameter(&package.output, &group,
                                 EGlowFieldFlags(GlowFieldFlag_Identifier | GlowFieldFlag_Description |
                                                 GlowFieldFlag_Value | GlowFieldFlag_Minimum |
                                                 GlowFieldFlag_Maximum | GlowFieldFlag_Access),
                                 groupPath, 3);
    package.finish();

    SGlowFunction connect;
    glowFunction_init(&connect);
    SGlowTupleItemDescription argument = {GlowParameterType_String, const_cast<char *>("ExtCon")};
    connect.pIdentifier = const_cast<char *>("Connect");
    connect.pDescription = const_cast<char *>("Connect / Call");
    connect.pArguments = &argument;
    connect.argumentsLength = 1;
    const int connectPath[] = {0, 1, 2};
    package.begin(false);
    glow_writeQualifiedFunction(&package.output, &connect, GlowFieldFlag_All, connectPath, 3);
    package.finish();

    // Several elements in the last package: status with its enumeration, octets, a boolean.
    SGlowParameter status;
    glowParameter_init(&status);
    status.pIdentifier = const_cast<char *>("Status");
    status.value.type = GlowParameterType_Integer;
    status.value.integer = 5;
    status.pEnumeration = const_cast<char *>("Not Ready\nStand By\nSynchronized");
    status.access = GlowAccess_Read;
    const int statusPath[] = {0, 2, 0};
    const unsigned char vu[6] = {0, 60, 0, 80, 0, 0};
    SGlowParameter octets;
    glowParameter_init(&octets);
    octets.pIdentifier = const_cast<char *>("Live Vu values");
    octets.value.type = GlowParameterType_Octets;
    octets.value.octets.pOctets = const_cast<unsigned char *>(vu);
    octets.value.octets.length = 6;
    const int octetsPath[] = {0, 2, 8};
    SGlowParameter flag;
    glowParameter_init(&flag);
    flag.pIdentifier = const_cast<char *>("online");
    flag.value.type = GlowParameterType_Boolean;
    flag.value.boolean = true;
    flag.isOnline = false;
    const int flagPath[] = {0, 3, 200};
    package.begin(true);
    glow_writeQualifiedParameter(&package.output, &status,
                                 EGlowFieldFlags(GlowFieldFlag_Identifier | GlowFieldFlag_Value |
                                                 GlowFieldFlag_Access | GlowFieldFlag_Enumeration),
                                 statusPath, 3);
    glow_writeQualifiedParameter(&package.output, &octets,
                                 EGlowFieldFlags(GlowFieldFlag_Identifier | GlowFieldFlag_Value), octetsPath,
                                 3);
    glow_writeQualifiedParameter(
        &package.output, &flag,
        EGlowFieldFlags(GlowFieldFlag_Identifier | GlowFieldFlag_Value | GlowFieldFlag_IsOnline), flagPath,
        3);
    package.finish();

    QByteArray real;
    Package realPackage(&real);
    SGlowParameter gain;
    glowParameter_init(&gain);
    gain.pIdentifier = const_cast<char *>("gain");
    gain.value.type = GlowParameterType_Real;
    gain.value.real = 3.0;
    const int gainPath[] = {0, 9};
    realPackage.begin(true);
    glow_writeQualifiedParameter(&realPackage.output, &gain,
                                 EGlowFieldFlags(GlowFieldFlag_Identifier | GlowFieldFlag_Value), gainPath,
                                 2);
    realPackage.finish();

    unsigned char keepAlive[32];
    int length = emberFraming_writeKeepAliveRequest(keepAlive, 16, 0);
    length += emberFraming_writeKeepAliveResponse(keepAlive + length, 16, 0);

    if (!writeFile(dir + "/tree.s101", tree) || !writeFile(dir + "/real.s101", real) ||
        !writeFile(dir + "/keepalive.s101", QByteArray(reinterpret_cast<const char *>(keepAlive), length))) {
        fprintf(stderr, "cannot write to %s\n", qPrintable(dir));
        return 1;
    }
    return 0;
}

static QStringList s_lines;

static void onPackage(const unsigned char *pPackage, int length, void *)
{
    const bool isGlow = length >= 7 && pPackage[1] == 0x0E && pPackage[2] == 0x00;
    if (!isGlow)
        s_lines << "K " + QByteArray(reinterpret_cast<const char *>(pPackage), length).toHex();
}

static int readFile(const QString &fileName)
{
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly)) {
        fprintf(stderr, "cannot read %s\n", qPrintable(fileName));
        return 1;
    }
    const QByteArray stream = file.readAll();
    unsigned char buffer[1024];
    SGlowReader reader;
    glowReader_init(&reader, GlowLog::onNode, GlowLog::onParameter, GlowLog::onCommand, nullptr, &s_lines,
                    buffer, sizeof(buffer));
    reader.base.onFunction = GlowLog::onFunction;
    reader.onPackageReceived = onPackage;
    glowReader_readBytes(&reader, reinterpret_cast<const unsigned char *>(stream.constData()), stream.size());
    glowReader_free(&reader);
    QTextStream out(stdout);
    for (const QString &line : qAsConst(s_lines))
        out << line << '\n';
    return 0;
}

int main(int argc, char **argv)
{
    ember_init(onThrowError, nullptr, nullptr, nullptr);
    if (argc == 3 && strcmp(argv[1], "write") == 0)
        return writeFiles(QString::fromLocal8Bit(argv[2]));
    if (argc == 3 && strcmp(argv[1], "read") == 0)
        return readFile(QString::fromLocal8Bit(argv[2]));
    fprintf(stderr, "usage: %s write <dir> | read <file>\n", argv[0]);
    return 2;
}
