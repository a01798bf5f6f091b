// The network interface on which every Ember+ provider listens, and the numbering of instances.
#include "app/manager.h"

#include "ember/emberserver.h"
#include "snmp/snmp.h"

#include <QDebug>
#include <QNetworkInterface>

QVector<NetworkChoice> Manager::getNetWorkList() const
{
    QVector<NetworkChoice> list;
    list.append({tr("Default"), -1, true});
    const auto interfaces = QNetworkInterface::allInterfaces();
    for (const QNetworkInterface &nic : interfaces) {
        QString suffix;
        switch (nic.type()) {
        case QNetworkInterface::Virtual:
            suffix = QStringLiteral(" , Virtual");
            break;
        case QNetworkInterface::Ethernet:
            suffix = QStringLiteral(" , LAN");
            break;
        case QNetworkInterface::Wifi:
            suffix = QStringLiteral(" , WIFI");
            break;
        case QNetworkInterface::Ieee80216:
            suffix = QStringLiteral(" , WiMAX");
            break;
        case QNetworkInterface::Ieee1394:
            suffix = QStringLiteral(" , FireWire");
            break;
        case QNetworkInterface::Ppp:
            continue;
        default:
            break;
        }
        const auto relevant = QNetworkInterface::IsUp | QNetworkInterface::IsRunning |
                              QNetworkInterface::IsLoopBack | QNetworkInterface::IsPointToPoint;
        if (nic.addressEntries().isEmpty() ||
            (nic.flags() & relevant) != (QNetworkInterface::IsUp | QNetworkInterface::IsRunning))
            continue;
        const bool chosen = nic.index() == nicIndex;
        if (chosen) {
            for (NetworkChoice &c : list)
                c.selected = false;
        }
        list.append({nic.humanReadableName() + suffix, nic.index(), chosen});
    }
    return list;
}

void Manager::setNetWorkNIC(int nic)
{
    nicIndex = nic < 0 ? 0 : nic;
    const QNetworkInterface chosen = QNetworkInterface::interfaceFromIndex(nicIndex);
    // An interface that does not exist has no entries; the fallback below applies.
    const QList<QNetworkAddressEntry> entries =
        chosen.isValid() ? chosen.addressEntries() : QList<QNetworkAddressEntry>();

    for (const QNetworkAddressEntry &e : entries) {
        if (e.ip().protocol() == QAbstractSocket::IPv4Protocol) {
            nicAddress = e.ip();
            if (EmberServer::setNICaddress(nicAddress))
                instancesReInitNetwork();
            return;
        }
    }
    for (const QNetworkAddressEntry &e : entries) {
        if (e.ip().protocol() == QAbstractSocket::IPv6Protocol &&
            e.dnsEligibility() != QNetworkAddressEntry::DnsEligible &&
            !e.ip().toString().startsWith(QLatin1Char('f'))) {
            nicAddress = e.ip();
            if (EmberServer::setNICaddress(nicAddress))
                instancesReInitNetwork();
            return;
        }
    }
    if (EmberServer::setNICaddress(QHostAddress(QHostAddress::Any)) || nicAddress.isNull()) {
        const auto all = QNetworkInterface::allAddresses();
        for (const QHostAddress &a : all) {
            if (a.protocol() == QAbstractSocket::IPv4Protocol && a.toIPv4Address() != 0 && !a.isLinkLocal() &&
                !a.isLoopback()) {
                if (a != nicAddress)
                    nicAddress = a;
                break;
            }
        }
        instancesReInitNetwork();
    }
}

void Manager::instancesReInitNetwork()
{
    const QList<uint> ids = instances.keys();
    for (uint id : ids)
        emberSocketInit(id);
    qInfo().noquote() << "My IP" << nicAddress.toString();
    if (snmp)
        snmp->vbSet(105, nicAddress.toIPv4Address());
}

void Manager::instanceReVXI()
{
    quint16 index = 0;
    for (auto it = instances.begin(); it != instances.end(); ++it)
        it->index = index++;
}
