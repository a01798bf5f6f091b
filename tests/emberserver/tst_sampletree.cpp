// The instance tree without any network: its shape and ids, path lookups, and how values that the
// instance reports are stored. The whole table, element by element, is checked over the wire by
// the Node consumer.
#include "ember/emberhooks.h"
#include "ember/emberserver.h"

#include <QtTest>

class TestSampleTree : public QObject
{
    Q_OBJECT

private:
    static SSampleNode *at(EmberServer &server, const QString &path, int *walked = nullptr)
    {
        QVector<int> numbers;
        for (const QString &n : path.split('.', Qt::SkipEmptyParts))
            numbers.append(n.toInt());
        int length = numbers.size();
        SSampleNode *node = EmberServer::findNode(server.rootNode(), numbers.constData(), &length);
        if (walked != nullptr)
            *walked = length;
        return node;
    }

    static QString identifierOf(const SSampleNode *node)
    {
        return node->element.node.pIdentifier != nullptr ? QString::fromUtf8(node->element.node.pIdentifier)
                                                         : QString("<top>");
    }

private slots:
    void shapeAndIds()
    {
        EmberServer server;
        SSampleNode *top = server.rootNode();
        QCOMPARE(top->childCount, 1);
        SSampleNode *root = top->children[0];
        QCOMPARE(identifierOf(root), QString("root"));
        const QList<int> groupSizes{7, 8, 19, 4, 3, 3, 3, 2};
        QCOMPARE(root->childCount, groupSizes.size());
        for (int g = 0; g < root->childCount; g++) {
            SSampleNode *group = root->children[g];
            QCOMPARE(group->type, int(SampleNodeType_Node));
            QCOMPARE(group->id, -1);
            QCOMPARE(group->childCount, groupSizes[g]);
            for (int e = 0; e < group->childCount; e++) {
                SSampleNode *element = group->children[e];
                // The id is the element's own path, one byte per level.
                QCOMPARE(element->id, (g << 16) | (e << 8));
                QCOMPARE(element->childCount, 0);
                if (element->type == SampleNodeType_Parameter) {
                    const SGlowParameter &p = element->element.parameter;
                    QCOMPARE(p.value.type, p.type);
                    const int expected =
                        0x27 | (p.pEnumeration ? 0x4000 : 0) | (element->id == 0x600 ? 0x18 : 0);
                    QCOMPARE(element->fields, expected);
                } else {
                    QCOMPARE(element->type, int(SampleNodeType_Function));
                    const int expected = element->element.function.argumentsLength > 0 ? -1 : 0x3;
                    QCOMPARE(element->fields, expected);
                }
            }
        }
    }

    void findNodePaths_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("identifier");
        QTest::addColumn<int>("walked");
        QTest::newRow("empty") << ""
                               << "<top>" << 0;
        QTest::newRow("root") << "0"
                              << "root" << 1;
        QTest::newRow("leaf") << "0.1.2"
                              << "Connect" << 3;
        QTest::newRow("past the last child") << "0.2.99"
                                             << "Connection Info" << 2;
        QTest::newRow("below a leaf") << "0.2.5.7"
                                      << "Jitter buffer" << 3;
        QTest::newRow("negative") << "0.-1.3"
                                  << "root" << 1;
        QTest::newRow("no such top") << "1.0"
                                     << "<top>" << 0;
        QTest::newRow("last child") << "0.7.1"
                                    << "Station routing" << 3;
    }

    void findNodePaths()
    {
        QFETCH(QString, path);
        QFETCH(QString, identifier);
        QFETCH(int, walked);
        EmberServer server;
        int length = -1;
        SSampleNode *node = at(server, path, &length);
        QVERIFY(node != nullptr);
        QCOMPARE(identifierOf(node), identifier);
        QCOMPARE(length, walked);
    }

    void octetsAreCutToTheBlock_data()
    {
        QTest::addColumn<int>("count");
        QTest::addColumn<QByteArray>("expected");
        QTest::newRow("longer than the block") << 10 << QByteArray::fromHex("010203040506");
        QTest::newRow("shorter keeps the rest") << 3 << QByteArray::fromHex("010203aaaaaa");
        QTest::newRow("none") << 0 << QByteArray::fromHex("aaaaaaaaaaaa");
    }

    void octetsAreCutToTheBlock()
    {
        QFETCH(int, count);
        QFETCH(QByteArray, expected);
        EmberServer server;
        QByteArray before = QByteArray::fromHex("aaaaaaaaaaaa");
        server.emberSendTo(0x020800, before.size(), before.data());
        QByteArray bytes = QByteArray::fromHex("0102030405060708090a");
        server.emberSendTo(0x020800, count, bytes.data());
        const SGlowOctets &octets = at(server, "0.2.8")->element.parameter.value.octets;
        QCOMPARE(octets.length, 6);
        QCOMPARE(QByteArray(reinterpret_cast<const char *>(octets.pOctets), octets.length), expected);
    }

    void stringsOverwriteOrReplace()
    {
        EmberServer server;
        SGlowValue &value = at(server, "0.0.5")->element.parameter.value; // "name", starts as ".."
        char longer[] = "Studio One";
        server.emberSendTo(0x000500, 0, longer);
        QCOMPARE(QByteArray(value.pString), QByteArray("Studio One"));
        const char *block = value.pString;
        char shorter[] = "Two";
        server.emberSendTo(0x000500, 0, shorter);
        QCOMPARE(QByteArray(value.pString), QByteArray("Two"));
        QCOMPARE(static_cast<const char *>(value.pString), block); // in place
        server.emberSendTo(0x000500, 0, nullptr);                  // a text without data is empty
        QCOMPARE(QByteArray(value.pString), QByteArray());
    }

    void numbersAndUnknownIds_data()
    {
        QTest::addColumn<int>("id");
        QTest::addColumn<QString>("path"); // empty: refused
        QTest::newRow("integer") << 0x020500 << "0.2.5";
        QTest::newRow("enumerated") << 0x020000 << "0.2.0";
        QTest::newRow("low byte ignored") << 0x020001 << "0.2.0";
        QTest::newRow("past the group") << 0x021300 << "";
        QTest::newRow("no such group") << 0x080000 << "";
        QTest::newRow("a node") << 0x020000 - 0x100 << "";
        QTest::newRow("a function") << 0x010200 << "";
        QTest::newRow("negative") << int(0xFF000000) << "";
    }

    void numbersAndUnknownIds()
    {
        QFETCH(int, id);
        QFETCH(QString, path);
        EmberServer server;
        if (path.isEmpty())
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^SendToEmber unknown parameter"));
        server.emberSendTo(id, 4, nullptr);
        if (!path.isEmpty())
            QCOMPARE(at(server, path)->element.parameter.value.integer, qint64(4));
    }

    // A consumer may have stored a value of another type; the instance's report restores the type.
    void reportRestoresTheParameterType()
    {
        EmberServer server;
        SGlowValue &value = at(server, "0.2.5")->element.parameter.value;
        glowValue_free(&value);
        value.type = GlowParameterType_String;
        value.pString = ember_copyString("abc");
        server.emberSendTo(0x020500, -7, nullptr);
        QCOMPARE(int(value.type), int(GlowParameterType_Integer));
        QCOMPARE(value.integer, qint64(-7));
    }

    void memoryIsGivenBack()
    {
        const int before = EmberServer::allocatedBlocks();
        {
            EmberServer first;
            EmberServer second;
            QVERIFY(EmberServer::allocatedBlocks() > before);
            char text[] = "a much longer name than before";
            first.emberSendTo(0x000500, 0, text);
        }
        QCOMPARE(EmberServer::allocatedBlocks(), before);
    }

    void fullParentKeepsItsChildren()
    {
        SSampleNode parent;
        sampleNode_init(&parent, nullptr);
        static SSampleNode children[SAMPLE_NODE_MAX_CHILDREN + 1];
        for (int i = 0; i < SAMPLE_NODE_MAX_CHILDREN; i++)
            QCOMPARE(sampleNode_init(&children[i], &parent), i + 1);
        QCOMPARE(sampleNode_init(&children[SAMPLE_NODE_MAX_CHILDREN], &parent), SAMPLE_NODE_MAX_CHILDREN);
        QCOMPARE(parent.children[SAMPLE_NODE_MAX_CHILDREN - 1], &children[SAMPLE_NODE_MAX_CHILDREN - 1]);
    }
};

QTEST_GUILESS_MAIN(TestSampleTree)
#include "tst_sampletree.moc"
