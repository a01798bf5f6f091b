#pragma once

#include <QByteArray>
#include <QDataStream>
#include <QString>

// Byte-level building and reading of OSC 1.0 packets. Every packet this system sends carries one
// message with exactly one argument; every message it reads is reduced to an address, one number and
// one byte buffer. All functions work on a big-endian QDataStream whose floating-point precision is
// left at the default (double), which makes 'f' arguments 8 bytes long on the wire in both
// directions. Receivers of this system expect that, so the encoder keeps it.

// Writes the zero bytes that bring a field of n bytes up to a multiple of 4.
void packetBuildAllign(QDataStream &stream, int n);

// Writes the address "/vx/<agent>/<name>" with its NUL and padding.
void packetBuildAddMessage(QDataStream &stream, unsigned agent, const QString &name);

// Writes the type tag string ",<tag>\0\0" and the argument. For 'b' and '[' value is the number of
// bytes taken from text (for '[' strlen(text) when value is 0); a null text counts as empty.
void packetBuildAddValue(QDataStream &stream, char tag, int value, const char *text);

// Argument readers for the scanner; an unknown tag logs a warning and reads nothing. A truncated
// argument reads as zeros, and nothing is ever read past the end of the stream.
qint32 packetParseAsInt(QDataStream &stream, char tag);
quint32 packetParseAsUInt(QDataStream &stream, char tag);
QByteArray packetParseAsBuffer(QDataStream &stream, char tag);

// Called once per message found by packetScan, with the address without its leading '/'.
typedef void (*packetMessageCallback)(void *state, const QString &address, int value, const QByteArray &data);

// Flat scan of one datagram (a message or a bundle): every type tag string found is delivered with
// the last address seen before it. Each step consumes at least one byte, so the scan always ends.
void packetScan(const QByteArray &datagram, packetMessageCallback deliver, void *state);
