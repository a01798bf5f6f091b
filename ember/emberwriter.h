#ifndef EMBER_EMBERWRITER_H
#define EMBER_EMBERWRITER_H

#include "ber.h"

// Writes whole Ember fields: an outer tag (always constructed) around one universal value, or
// around a container. Containers use the indefinite form for both their outer tag and their
// type, so they can be streamed without knowing their size; ember_writeContainerEnd closes both.

// type: a universal type number, or 0x8000 | n for APPLICATION n.
void ember_writeContainerBegin(SBerOutput *pOut, SBerTag tag, bertype_t type);
void ember_writeSequenceBegin(SBerOutput *pOut, SBerTag tag);
void ember_writeSetBegin(SBerOutput *pOut, SBerTag tag);
void ember_writeContainerEnd(SBerOutput *pOut);

void ember_writeBoolean(SBerOutput *pOut, SBerTag tag, bool value);
void ember_writeInteger(SBerOutput *pOut, SBerTag tag, int32_t value);
void ember_writeLong(SBerOutput *pOut, SBerTag tag, int64_t value);
void ember_writeReal(SBerOutput *pOut, SBerTag tag, double value);
void ember_writeString(SBerOutput *pOut, SBerTag tag, const char *pValue);
void ember_writeOctetString(SBerOutput *pOut, SBerTag tag, const unsigned char *pValue, int length);
void ember_writeRelativeOid(SBerOutput *pOut, SBerTag tag, const int *pValues, int count);

#endif
