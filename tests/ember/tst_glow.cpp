#include "ember/emberwriter.h"
#include "ember/glowreader.h"
#include "ember/glowtags.h"
#include "ember/glowwriter.h"
#include "emberhookcapture.h"
#include "glowlog.h"

#include <QtTest>
#include <cstring>

// The Glow writer against exact bytes, writer-to-reader round trips of every element kind and
// value type (whole, byte by byte, and cut across S101 packages anywhere), and the reader's
// errors on input that must raise them.
class TestGlow : public QObject
{
    Q_OBJECT

    // Fields the reader decodes into a parameter.
    static const int DecodedParameterFields = 0x1BBF;

    // Test records whose strings and blocks come from the memory hooks, freed by the destructor.
    struct Parameter : SGlowParameter
    {
        Parameter() { glowParameter_init(this); }
        ~Parameter() { glowParameter_free(this); }
    };

    static SGlowValue stringValue(const char *p)
    {
        SGlowValue v;
        glowValue_init(&v);
        v.type = GlowParameterType_String;
        v.pString = const_cast<char *>(p);
        return v;
    }

    struct Sample
    {
        QByteArray bytes; // the BER stream of one message: root, elements, end of root
        QStringList expected;
    };

    // One message holding every element kind and value type, and the lines the reader must give.
    static Sample sample()
    {
        unsigned char buffer[4096];
        SBerMemoryOutput output;
        berMemoryOutput_init(&output, buffer, sizeof(buffer));
        SBerOutput *pOut = &output.base;
        Sample sample;
        ember_writeContainerBegin(pOut, berTag_make(BerClass_Application, 0), GlowType_RootElementCollection);

        Parameter full;
        full.pIdentifier = ember_copyString("Jitter buffer");
        full.pDescription = ember_copyString("Nr of milliseconds");
        full.value.type = GlowParameterType_Integer;
        full.value.integer = 20;
        full.minimum.type = GlowParameterType_Integer;
        full.minimum.integer = -1;
        full.maximum.type = GlowParameterType_Integer;
        full.maximum.integer = 1000;
        full.access = GlowAccess_ReadWrite;
        full.pFormat = ember_copyString("%d ms");
        full.pEnumeration = ember_copyString("a\nb");
        full.factor = 10;
        full.isOnline = true;
        full.pFormula = ember_copyString("$/10");
        full.step = 2;
        full.type = GlowParameterType_Integer;
        full.streamIdentifier = 4;
        full.streamDescriptor.format = 5;
        full.streamDescriptor.offset = 6;
        const int fullPath[] = {0, 2, 5};
        glow_writeQualifiedParameterTo(pOut, &full, GlowFieldFlag_All, fullPath, 3);
        sample.expected << GlowLog::parameter(full, DecodedParameterFields, fullPath, 3);

        Parameter real;
        real.minimum.type = GlowParameterType_Real;
        real.minimum.real = -0.5;
        real.maximum.type = GlowParameterType_Real;
        real.maximum.real = 1e300;
        const int realPath[] = {0, 4, 200};
        const int realFields = GlowFieldFlag_Minimum | GlowFieldFlag_Maximum;
        glow_writeQualifiedParameterTo(pOut, &real, EGlowFieldFlags(realFields), realPath, 3);
        sample.expected << GlowLog::parameter(real, realFields, realPath, 3);

        // One parameter per value type, with an identifier.
        const unsigned char octets[6] = {0, 60, 0, 80, 0, 0};
        QList<SGlowValue> values;
        SGlowValue v;
        glowValue_init(&v);
        v.type = GlowParameterType_Integer;
        v.integer = -5;
        values << v;
        v.integer = INT64_C(0x123456789A);
        values << v;
        v.type = GlowParameterType_Real;
        v.real = 2.5;
        values << v;
        v.real = -1.0 / 3.0;
        values << v;
        values << stringValue("NA") << stringValue("") << stringValue("Ünïcode");
        glowValue_init(&v);
        v.type = GlowParameterType_Boolean;
        v.boolean = true;
        values << v;
        v.boolean = false;
        values << v;
        glowValue_init(&v);
        v.type = GlowParameterType_Octets;
        v.octets.pOctets = const_cast<unsigned char *>(octets);
        v.octets.length = 6;
        values << v;
        v.octets.length = 0;
        v.octets.pOctets = nullptr;
        values << v;
        for (int i = 0; i < values.size(); i++) {
            SGlowParameter p;
            glowParameter_init(&p);
            p.pIdentifier = const_cast<char *>("value");
            p.value = values[i];
            const int path[] = {0, 3, i};
            const int fields = GlowFieldFlag_Identifier | GlowFieldFlag_Value;
            glow_writeQualifiedParameterTo(pOut, &p, EGlowFieldFlags(fields), path, 3);
            sample.expected << GlowLog::parameter(p, fields, path, 3);
        }

        SGlowNode node;
        glowNode_init(&node);
        node.pIdentifier = const_cast<char *>("root");
        node.pDescription = const_cast<char *>("root");
        node.isRoot = true;
        node.isOnline = true;
        const int nodePath[] = {0};
        glow_writeQualifiedNodeTo(pOut, &node, GlowFieldFlag_All, nodePath, 1);
        sample.expected << GlowLog::node(node,
                                         GlowFieldFlag_Identifier | GlowFieldFlag_Description |
                                             GlowFieldFlag_IsRoot | GlowFieldFlag_IsOnline,
                                         nodePath, 1);
        const int emptyNodePath[] = {0, 7};
        glow_writeQualifiedNodeTo(pOut, &node, EGlowFieldFlags(0), emptyNodePath, 2); // path only: no line

        SGlowFunction connect;
        glowFunction_init(&connect);
        connect.pIdentifier = ember_copyString("Connect");
        connect.pDescription = ember_copyString("Connect / Call");
        glowFunction_setArguments(&connect, 1);
        connect.pArguments[0].type = GlowParameterType_String;
        connect.pArguments[0].pName = ember_copyString("ExtCon");
        glowFunction_setResult(&connect, 2);
        connect.pResult[0].type = GlowParameterType_Boolean;
        connect.pResult[0].pName = ember_copyString("ok");
        connect.pResult[1].type = GlowParameterType_Integer;
        const int connectPath[] = {0, 1, 2};
        glow_writeQualifiedFunctionTo(pOut, &connect, GlowFieldFlag_All, connectPath, 3);
        sample.expected << GlowLog::function(connect, connectPath, 3);
        // Without all fields, no arguments and no result.
        const int plainPath[] = {0, 1, 3};
        glow_writeQualifiedFunctionTo(pOut, &connect,
                                      EGlowFieldFlags(GlowFieldFlag_Identifier | GlowFieldFlag_Description),
                                      plainPath, 3);
        SGlowFunction plain = connect;
        plain.argumentsLength = plain.resultLength = 0;
        sample.expected << GlowLog::function(plain, plainPath, 3);
        glowFunction_free(&connect);

        SGlowCommand command;
        glowCommand_init(&command);
        command.number = GlowCommandType_GetDirectory;
        glow_writeQualifiedCommandTo(pOut, &command, nullptr, 0);
        command.dirFieldMask = -1;
        sample.expected << GlowLog::command(command, nullptr, 0);
        command.dirFieldMask = 3;
        const int dirPath[] = {0, 2};
        glow_writeQualifiedCommandTo(pOut, &command, dirPath, 2);
        sample.expected << GlowLog::command(command, dirPath, 2);
        command.number = GlowCommandType_Subscribe;
        command.dirFieldMask = 0;
        glow_writeQualifiedCommandTo(pOut, &command, fullPath, 3);
        sample.expected << GlowLog::command(command, fullPath, 3);
        command.number = GlowCommandType_Invoke;
        command.invocation.invocationId = 5;
        SGlowValue arguments[3] = {stringValue("sip:studio"), values[0], values[7]};
        command.invocation.pArguments = arguments;
        command.invocation.argumentsLength = 3;
        glow_writeQualifiedCommandTo(pOut, &command, connectPath, 3);
        sample.expected << GlowLog::command(command, connectPath, 3);

        ember_writeContainerEnd(pOut);
        sample.bytes = bytesOf(buffer, output.position);
        return sample;
    }

    static void attachFunctionLog(SNonFramingGlowReader *pReader)
    {
        pReader->onFunction = GlowLog::onFunction;
    }

    // Decodes a raw BER stream fed in pieces of chunk bytes.
    static QStringList decode(const QByteArray &bytes, int chunk)
    {
        QStringList log;
        SNonFramingGlowReader reader;
        nonFramingGlowReader_init(&reader, GlowLog::onNode, GlowLog::onParameter, GlowLog::onCommand, nullptr,
                                  &log);
        attachFunctionLog(&reader);
        const auto *p = reinterpret_cast<const unsigned char *>(bytes.constData());
        for (int i = 0; i < bytes.size(); i += chunk)
            nonFramingGlowReader_readBytes(&reader, p + i, qMin(chunk, bytes.size() - i));
        nonFramingGlowReader_free(&reader);
        return log;
    }

    // The BER stream cut into S101 packages of at most packageSize payload bytes.
    static QByteArray packages(const QByteArray &bytes, int packageSize)
    {
        QByteArray stream;
        const unsigned char app[] = {0x14, 0x02};
        for (int start = 0; start < bytes.size(); start += packageSize) {
            unsigned char buffer[1024];
            SBerFramingOutput output;
            berFramingOutput_init(&output, buffer, sizeof(buffer), 0, 0x01, app, 2);
            unsigned char flags = start == 0 ? 0x80 : 0;
            if (start + packageSize >= bytes.size())
                flags |= 0x40;
            berFramingOutput_writeHeader(&output, flags);
            const int n = qMin(packageSize, bytes.size() - start);
            berFramingOutput_writeBytes(
                &output.base.base, reinterpret_cast<const unsigned char *>(bytes.constData()) + start, n);
            stream += bytesOf(buffer, berFramingOutput_finish(&output));
        }
        return stream;
    }

    struct Framed
    {
        QStringList log;
        QList<QByteArray> packages;
        static void onPackage(const unsigned char *p, int n, void *state)
        {
            static_cast<Framed *>(state)->packages.append(bytesOf(p, n));
        }
    };

    static Framed decodeFramed(const QByteArray &stream, int chunk)
    {
        Framed framed;
        unsigned char buffer[1024];
        SGlowReader reader;
        glowReader_init(&reader, GlowLog::onNode, GlowLog::onParameter, GlowLog::onCommand, nullptr,
                        &framed.log, buffer, sizeof(buffer));
        attachFunctionLog(&reader.base);
        // The package hook gets the same state as the element callbacks: collect through a side door.
        static Framed *s_pFramed;
        s_pFramed = &framed;
        reader.onPackageReceived = [](const unsigned char *p, int n, void *) {
            Framed::onPackage(p, n, s_pFramed);
        };
        const auto *p = reinterpret_cast<const unsigned char *>(stream.constData());
        for (int i = 0; i < stream.size(); i += chunk)
            glowReader_readBytes(&reader, p + i, qMin(chunk, stream.size() - i));
        glowReader_free(&reader);
        return framed;
    }

    static QByteArray written(const std::function<void(SBerOutput *)> &write)
    {
        unsigned char buffer[512];
        SBerMemoryOutput output;
        berMemoryOutput_init(&output, buffer, sizeof(buffer));
        write(&output.base);
        return bytesOf(buffer, output.position);
    }

private slots:
    void init() { EmberHookCapture::install(); }
    void cleanup() { QCOMPARE(EmberHookCapture::allocations(), 0); }

    void roundTrip_data()
    {
        QTest::addColumn<int>("chunk");
        for (int chunk : {1, 2, 3, 5, 16, 100000})
            QTest::newRow(qPrintable(QString("chunk %1").arg(chunk))) << chunk;
    }
    void roundTrip()
    {
        QFETCH(int, chunk);
        const Sample s = sample();
        QCOMPARE(decode(s.bytes, chunk), s.expected);
        QVERIFY2(EmberHookCapture::errors().isEmpty(), qPrintable(EmberHookCapture::messages().join("; ")));
    }

    // The same message cut into S101 packages at every size, fed in any chunks, gives the same
    // lines; the package hook sees every package.
    void acrossPackages_data()
    {
        QTest::addColumn<int>("packageSize");
        QTest::addColumn<int>("chunk");
        for (int size : {1, 7, 50, 333, 900})
            for (int chunk : {1, 13, 4096})
                QTest::newRow(qPrintable(QString("package %1 chunk %2").arg(size).arg(chunk)))
                    << size << chunk;
    }
    void acrossPackages()
    {
        QFETCH(int, packageSize);
        QFETCH(int, chunk);
        const Sample s = sample();
        const Framed framed = decodeFramed(packages(s.bytes, packageSize), chunk);
        QCOMPARE(framed.log, s.expected);
        QCOMPARE(framed.packages.size(), (s.bytes.size() + packageSize - 1) / packageSize);
        QVERIFY(EmberHookCapture::errors().isEmpty());
    }

    // A keep-alive reaches the package hook and nothing else; so does a package of another DTD.
    void packageHook()
    {
        unsigned char keepAlive[16];
        const int n = emberFraming_writeKeepAliveRequest(keepAlive, sizeof(keepAlive), 0);
        const Framed framed = decodeFramed(bytesOf(keepAlive, n), 1);
        QCOMPARE(framed.packages, QList<QByteArray>{QByteArray::fromHex("000e0101")});
        QVERIFY(framed.log.isEmpty());
    }

    void parameterBytes()
    {
        SGlowParameter p;
        glowParameter_init(&p);
        p.value.type = GlowParameterType_Integer;
        p.value.integer = 7;
        const int path[] = {0, 2, 5};
        QCOMPARE(written([&](SBerOutput *o) {
                     glow_writeQualifiedParameterTo(o, &p, GlowFieldFlag_Value, path, 3);
                 }),
                 QByteArray::fromHex("a0806980"
                                     "a0050d03000205"
                                     "a1803180"
                                     "a2030201070000 0000 00000000")
                     .replace(' ', ""));
        // Fields 0: the contents set is still there, empty.
        QCOMPARE(written([&](SBerOutput *o) {
                     glow_writeQualifiedParameterTo(o, &p, EGlowFieldFlags(0), path, 3);
                 }),
                 QByteArray::fromHex("a0806980a0050d03000205a180318000000000 00000000").replace(' ', ""));
        // A node with fields 0 carries its path only.
        SGlowNode node;
        glowNode_init(&node);
        QCOMPARE(
            written([&](SBerOutput *o) { glow_writeQualifiedNodeTo(o, &node, EGlowFieldFlags(0), path, 1); }),
            QByteArray::fromHex("a0806a80a0030d01000000 0000").replace(' ', ""));
        // Octets keep their zero bytes and their exact length.
        const unsigned char octets[6] = {1, 0, 0, 0, 0, 0};
        p.value.type = GlowParameterType_Octets;
        p.value.octets.pOctets = const_cast<unsigned char *>(octets);
        p.value.octets.length = 6;
        QVERIFY(written([&](SBerOutput *o) {
                    glow_writeQualifiedParameterTo(o, &p, GlowFieldFlag_Value, path, 3);
                }).contains(QByteArray::fromHex("a20804060100000000 00").replace(' ', "")));
    }

    // A message in one package and in three: root opened by the first, closed by the last.
    void packages()
    {
        unsigned char buffer[512];
        SGlowOutput output;
        glowOutput_init(&output, buffer, sizeof(buffer), 0);
        SGlowNode node;
        glowNode_init(&node);
        QByteArray stream;
        for (int i = 0; i < 3; i++) {
            glowOutput_beginPackage(&output, i == 2);
            const int path[] = {0, i};
            glow_writeQualifiedNode(&output, &node, EGlowFieldFlags(0), path, 2);
            const int length = glowOutput_finishPackage(&output);
            QCOMPARE(int(buffer[5]), i == 0 ? 0x80 : (i == 2 ? 0x40 : 0x00));
            stream += bytesOf(buffer, length);
        }
        glowOutput_beginPackage(&output, true);
        const int single = glowOutput_finishPackage(&output);
        QCOMPARE(int(buffer[5]), 0xC0);
        // The whole: root with three nodes, then an empty root.
        const Framed framed = decodeFramed(stream + bytesOf(buffer, single), 1);
        QCOMPARE(framed.packages.size(), 4);
        QByteArray payload;
        for (const QByteArray &package : framed.packages)
            payload += package.mid(9);
        QCOMPARE(payload, QByteArray::fromHex("60806b80"
                                              "a0806a80a0040d0200000000 0000"
                                              "a0806a80a0040d0200010000 0000"
                                              "a0806a80a0040d0200020000 0000 00000000"
                                              "60806b8000000000")
                              .replace(' ', ""));
        QVERIFY(EmberHookCapture::errors().isEmpty());
    }

    void writerErrors()
    {
        const char *identifiers[] = {nullptr, "", "9lives", "a/b", "Jitter buffer"};
        const char *texts[] = {"identifier must not be NULL!", "identifier must not be empty!",
                               "identifier must not begin with a number!",
                               "identifier must not contain the '/' character!"};
        for (int i = 0; i < 5; i++) {
            EmberHookCapture::clear();
            SGlowNode node;
            glowNode_init(&node);
            node.pIdentifier = const_cast<char *>(identifiers[i]);
            const int path[] = {0};
            const QByteArray bytes = written([&](SBerOutput *o) {
                glow_writeQualifiedNodeTo(o, &node, GlowFieldFlag_Identifier, path, 1);
            });
            if (i < 4) {
                QCOMPARE(EmberHookCapture::errors(), QList<int>{511});
                QCOMPARE(EmberHookCapture::messages().first(), QString(texts[i]));
                QVERIFY(!bytes.contains(char(0x0C))); // no UTF8String written
            } else {
                QVERIFY(EmberHookCapture::errors().isEmpty());
            }
        }
        EmberHookCapture::clear();
        SGlowParameter p;
        glowParameter_init(&p);
        const int path[] = {0};
        for (EGlowParameterType type :
             {GlowParameterType_None, GlowParameterType_Trigger, GlowParameterType_Enum}) {
            p.value.type = type;
            written(
                [&](SBerOutput *o) { glow_writeQualifiedParameterTo(o, &p, GlowFieldFlag_Value, path, 1); });
        }
        p.minimum.type = GlowParameterType_String;
        written(
            [&](SBerOutput *o) { glow_writeQualifiedParameterTo(o, &p, GlowFieldFlag_Minimum, path, 1); });
        QCOMPARE(EmberHookCapture::errors(), (QList<int>{506, 506, 506, 505}));
        QCOMPARE(EmberHookCapture::messages().first(), QString("GlowValue object has unsupported type!"));
    }

    // The reader's errors, each raised by an input that must raise it; the reader goes on after
    // each, and decodes what follows.
    void readerErrors_data()
    {
        QTest::addColumn<QByteArray>("input");
        QTest::addColumn<QList<int>>("errors");
        QTest::addColumn<QString>("text");
        auto hex = [](const char *p) { return QByteArray::fromHex(QByteArray(p).replace(' ', "")); };
        QTest::newRow("101") << hex("6080 6b80 0001") << QList<int>{101} << "Non-zero byte in terminator";
        QTest::newRow("102") << hex("a000") << QList<int>{102} << "Zero outer length encountered";
        QTest::newRow("103") << hex("bf808080808080") << QList<int>{103}
                             << "Number of tag octets out of bounds";
        QTest::newRow("104") << hex("a085") << QList<int>{104} << "Number of length octets out of bounds";
        QTest::newRow("105") << hex("0000") << QList<int>{105} << "Unexpected terminator";
        QTest::newRow("106") << hex("6006 6b04 a0040201") << QList<int>{106} << "Unexpected end of container";
        QTest::newRow("107") << hex("02") << QList<int>{107} << "Universal outer tag encountered";
        QTest::newRow("108") << hex("80") << QList<int>{108} << "Primitive outer tag encountered";
        QTest::newRow("109") << hex("a00300") << QList<int>{109} << "Invalid BER type encountered";
        QTest::newRow("110") << hex("a00380") << QList<int>{110} << "Non-universal inner tag encountered";
        QByteArray deep;
        for (int i = 0; i < 66; i++)
            deep += hex("a0803080");
        QTest::newRow("111") << deep << QList<int>{111} << "ember tree stack overflow";
        QTest::newRow("503") << hex("6080 6b80 a080 6980 a0020d00 a1803180 00000000 00000000 00000000")
                             << QList<int>{503} << "empty path in QualifiedParameter!";
        QTest::newRow("504") << hex("6080 6b80 a080 6380 a2806480 a080 6a80 a0030d0101 0000 0000"
                                    "00000000 00000000 00000000")
                             << QList<int>{504} << "QualifiedNode encountered on non-root level!";
        QTest::newRow("507")
            << hex("6080 6b80 a080 6980 a0030d0101 a1803180 a2020500 00000000 00000000 00000000")
            << QList<int>{507} << "BerReader reports unsupported GlowValue type!";
        QTest::newRow("512")
            << hex("6080 6b80 a080 6980 a0030d0101 a1803180 a0060c04316162 63 00000000 00000000 "
                   "00000000")
            << QList<int>{512} << "identifier must not begin with a number!";
    }
    void readerErrors()
    {
        QFETCH(QByteArray, input);
        QFETCH(QList<int>, errors);
        QFETCH(QString, text);
        decode(input, 1);
        QVERIFY2(EmberHookCapture::errors() == errors, qPrintable(EmberHookCapture::messages().join("; ")));
        QCOMPARE(EmberHookCapture::messages().first(), text);
        EmberHookCapture::clear();
        decode(input, input.size());
        QCOMPARE(EmberHookCapture::errors(), errors);
    }

    // After a faulty element that leaves the nesting intact, the reader decodes what follows.
    void readerGoesOn()
    {
        const QByteArray bad =
            QByteArray::fromHex("6080 6b80 a080 6980 a0030d0101 a1803180 a2020500 a0070c05"
                                "3961626364 00000000 00000000 00000000 0000 6006 6b04 a0040201")
                .replace(' ', "");
        const QByteArray getDirectory = QByteArray::fromHex("60806b80a0806280a0030201200000000000000000");
        QCOMPARE(decode(bad + getDirectory, 1), (QStringList{"P 1 fields=0", "C  number=32 mask=-1"}));
        QCOMPARE(EmberHookCapture::errors(), (QList<int>{507, 512, 105, 106}));
    }

    // An unknown field of a parameter is skipped; only the value comes through.
    void unknownFieldSkipped()
    {
        SGlowParameter p;
        glowParameter_init(&p);
        p.value = stringValue("x");
        p.pFormat = const_cast<char *>("%s");
        const int path[] = {1};
        QByteArray bytes =
            QByteArray::fromHex("60806b80") + written([&](SBerOutput *o) {
                glow_writeQualifiedParameterTo(
                    o, &p, EGlowFieldFlags(GlowFieldFlag_Value | GlowFieldFlag_Format), path, 1);
            }) +
            QByteArray::fromHex("00000000");
        QCOMPARE(decode(bytes, 1), QStringList{"P 1 fields=4 value=str:'x'"});
        QVERIFY(EmberHookCapture::errors().isEmpty());
    }
};

QTEST_APPLESS_MAIN(TestGlow)
#include "tst_glow.moc"
