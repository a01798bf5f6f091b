#pragma once

#include <QByteArray>
#include <QList>
#include <QRandomGenerator>

// The inputs of the sweep. Each kind is a way for a peer to be wrong: plain noise, something that
// looks like the protocol until it breaks, or a valid message with a few bytes changed. All of them
// are built from a seeded generator, so that a run can be repeated.
namespace badinput {

// What goes down a TCP connection to an Ember+ port.
enum class EmberKind
{
    Noise,       // random bytes
    HalfFrame,   // a good frame cut short, no EOF
    BadCrc,      // a whole frame with its CRC changed
    RandomGlow,  // a frame with a good CRC around random BER, random flags
    MutatedGlow, // a frame with a good CRC around a valid command or write with bytes changed
    Oversize,    // a frame longer than the provider's package buffer
    Count
};
const char *emberKindName(EmberKind kind);
EmberKind pickEmberKind(QRandomGenerator &rng);
QByteArray ember(EmberKind kind, QRandomGenerator &rng);

// Datagrams for the SNMP agent and the OSC gateway.
enum class DatagramKind
{
    Noise,   // random bytes
    Mutated, // a valid request or message with bytes changed, cut or grown
    Valid,   // a valid one, so that the work behind the scanner is done too
    Count
};
const char *datagramKindName(DatagramKind kind);
DatagramKind pickDatagramKind(QRandomGenerator &rng);
QByteArray snmp(DatagramKind kind, QRandomGenerator &rng);
QByteArray osc(DatagramKind kind, QRandomGenerator &rng);

// Helpers the peers use too.
QByteArray s101Frame(const QByteArray &package); // BOF, escaped package and CRC, EOF
QByteArray glowPackage(const QByteArray &glow, unsigned char flags = 0xC0); // S101 header + payload
QByteArray glowGetDirectory(const QList<int> &path); // root collection with one command
QByteArray keepAliveRequest();

} // namespace badinput
