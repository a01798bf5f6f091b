#include "hubpeerprocess.h"

#include <QtTest>
#include <memory>
#include <vector>

// The hub across real processes: roles and ids, routing and size limits, the cipher bit, and the
// take-over when the relay's process is killed.
class TestMultiCastSocketServer : public QObject
{
    Q_OBJECT

private:
    using Peer = std::unique_ptr<HubPeerProcess>;

    // A new peer, once it has its id (0 if none came).
    static Peer startPeer(int flags)
    {
        Peer peer = std::make_unique<HubPeerProcess>(flags);
        peer->waitFor("id ");
        return peer;
    }

    // A broadcast marker from `from`, waited for at every peer: everything sent before it has
    // been delivered (the relay keeps the order of frames).
    static bool sync(HubPeerProcess &from, const std::vector<HubPeerProcess *> &all, const QByteArray &tag)
    {
        from.command("bcast " + tag);
        bool ok = true;
        for (HubPeerProcess *peer : all)
            ok = !peer->waitFor("recv " + QByteArray::number(from.id()) + ' ' +
                                QByteArray::number(tag.size()) + ' ' + tag.toHex())
                      .isEmpty() &&
                 ok;
        return ok;
    }

    static bool received(const HubPeerProcess &peer, const QByteArray &payloadHex)
    {
        for (const QByteArray &line : peer.lines()) {
            if (line.startsWith("recv ") && line.endsWith(' ' + payloadHex))
                return true;
        }
        return false;
    }

private slots:
    void idsAreAssignedAndReused()
    {
        Peer first = startPeer(2);
        QCOMPARE(first->id(), 1);
        QVERIFY(first->isServer());
        Peer second = startPeer(2);
        QCOMPARE(second->id(), 2);
        Peer third = startPeer(6);
        QCOMPARE(third->id(), 3);
        QVERIFY(!second->isServer() && !third->isServer());

        second->kill();
        // The relay frees the id when it sees the connection close; give a loaded machine time.
        QTest::qWait(1500);
        Peer fourth = startPeer(6);
        QCOMPARE(fourth->id(), 2); // the freed id is given again
        Peer fifth = startPeer(3);
        QCOMPARE(fifth->id(), 4);
    }

    void routing_data()
    {
        QTest::addColumn<int>("target");
        QTest::addColumn<int>("size");
        QTest::addColumn<QList<int>>("receivers"); // indexes of the peers that must receive it

        QTest::newRow("broadcast reaches everybody, the sender too") << 0 << 5 << QList<int>{0, 1, 2, 3};
        QTest::newRow("to id 3 only") << 3 << 7 << QList<int>{2};
        QTest::newRow("to an id nobody has") << 9 << 7 << QList<int>{};
        QTest::newRow("largest payload") << 3 << 16383 << QList<int>{2};
        QTest::newRow("one byte too large") << 3 << 16384 << QList<int>{};
        QTest::newRow("large broadcast") << 0 << 16384 << QList<int>{};
    }

    void routing()
    {
        QFETCH(int, target);
        QFETCH(int, size);
        QFETCH(QList<int>, receivers);

        std::vector<Peer> peers;
        std::vector<HubPeerProcess *> all;
        for (int i = 0; i < 4; ++i) {
            peers.push_back(startPeer(i % 2 ? 6 : 2));
            QCOMPARE(peers.back()->id(), i + 1);
            all.push_back(peers.back().get());
        }
        // The sender is the second peer, so that "the sender too" is not the relay's own client.
        peers[1]->command("fill " + QByteArray::number(target) + ' ' + QByteArray::number(size));
        QVERIFY(sync(*peers[1], all, "sync"));
        const QByteArray expected = QByteArray(size, 'x').toHex();
        for (int i = 0; i < 4; ++i)
            QVERIFY2(received(*peers[i], expected) == receivers.contains(i), qPrintable(QString::number(i)));
    }

    void encryptedFrameReachesCipherOffPeerAsSent()
    {
        Peer plain = startPeer(2);
        Peer sealed = startPeer(0);
        QCOMPARE(sealed->id(), 2);
        sealed->command("bcast secret");
        // The cipher-on peer gets the plain text with its terminating zero.
        QCOMPARE(sealed->waitFor("recv 2 "), QByteArray("recv 2 7 ") + QByteArray("secret\0", 7).toHex());
        // The cipher-off peer gets the sealed bytes: marker 1, four bytes longer.
        const QByteArray line = plain->waitFor("recv 2 ");
        QVERIFY(line.startsWith("recv 2 10 01"));
    }

    // Every participant hears "serverlost"; exactly one takes the relay over within 2 s, the
    // others join it; repeated with the new relay each time.
    void relayKilledIsTakenOver()
    {
        std::vector<Peer> peers;
        for (int flags : {2, 6, 2, 3, 6})
            peers.push_back(startPeer(flags));
        const HubPeerProcess *clientOnly = peers[3].get();
        QVERIFY(peers[0]->isServer());

        for (int round = 0; round < 4; ++round) {
            const auto relay =
                std::find_if(peers.begin(), peers.end(), [](const Peer &p) { return p->isServer(); });
            QVERIFY(relay != peers.end());
            (*relay)->kill();
            QElapsedTimer clock;
            clock.start();
            peers.erase(relay);

            for (Peer &peer : peers)
                QVERIFY2(!peer->waitFor("lost", 3000).isEmpty(), "no serverlost");
            // Wait (bounded) until some peer reports the relay role.
            while (clock.elapsed() < 5000 &&
                   std::none_of(peers.begin(), peers.end(), [](const Peer &p) { return p->isServer(); }))
                QTest::qWait(5);
            const qint64 takeover = clock.elapsed();
            qInfo("round %d: take-over after %lld ms", round, takeover);
            QVERIFY2(takeover <= 2000, qPrintable(QString("take-over after %1 ms").arg(takeover)));

            // Everybody gets a new id from the new relay, and stays with it.
            for (Peer &peer : peers)
                QVERIFY(!peer->waitFor("id ", 3000).isEmpty());
            QTest::qWait(1500);
            int servers = 0;
            QSet<int> ids;
            for (Peer &peer : peers) {
                servers += peer->isServer() ? 1 : 0;
                ids.insert(peer->id());
            }
            QCOMPARE(servers, 1);
            QCOMPARE(ids.size(), int(peers.size()));
            std::vector<HubPeerProcess *> all;
            for (Peer &peer : peers)
                all.push_back(peer.get());
            QVERIFY(sync(*peers.front(), all, "round" + QByteArray::number(round)));

            // A newcomer joins the new relay.
            peers.push_back(startPeer(round % 2 ? 2 : 6));
            all.push_back(peers.back().get());
            QVERIFY(sync(*peers.back(), all, "joined" + QByteArray::number(round)));
        }
        QVERIFY(!clientOnly->lines().contains("server 1"));
    }
};

QTEST_GUILESS_MAIN(TestMultiCastSocketServer)
#include "tst_multicastsocketserver.moc"
