#ifndef EMBER_GLOWWRITER_H
#define EMBER_GLOWWRITER_H

#include "framing.h"
#include "glow.h"

// Writes Glow elements into S101 packages on a caller's buffer (at most 1,024 bytes are used).
// A message is one or more packages: the first opens the Glow root collection, the one marked
// last closes it. Each element written is one entry of that collection.
typedef struct SGlowOutput
{
    SBerFramingOutput base;
    int packageCount; // packages begun in the current message
    bool isLastPackage;
} SGlowOutput;

void glowOutput_init(SGlowOutput *pThis, unsigned char *pMemory, int size, unsigned char slot);
void glowOutput_beginPackage(SGlowOutput *pThis, bool isLastPackage);
// Closes the root if the package was marked last; returns the length of the framed package,
// which is at the start of the buffer.
int glowOutput_finishPackage(SGlowOutput *pThis);
void glowOutput_free(SGlowOutput *pThis);

// fields selects what is written (GlowFieldFlag_All for everything); path holds the numbers from
// the top of the tree. Faulty fields are reported through the error hook and left out.
void glow_writeQualifiedParameter(SGlowOutput *pOut, const SGlowParameter *pParameter, EGlowFieldFlags fields,
                                  const int *pPath, int pathLength);
void glow_writeQualifiedNode(SGlowOutput *pOut, const SGlowNode *pNode, EGlowFieldFlags fields,
                             const int *pPath, int pathLength);
// Arguments and result are written only when fields is GlowFieldFlag_All.
void glow_writeQualifiedFunction(SGlowOutput *pOut, const SGlowFunction *pFunction, EGlowFieldFlags fields,
                                 const int *pPath, int pathLength);
// A command to the element at path (a consumer's request): at the root for pathLength 0, else in
// the children of a qualified node.
void glow_writeQualifiedCommand(SGlowOutput *pOut, const SGlowCommand *pCommand, const int *pPath,
                                int pathLength);

// Same as the above, on any BER output (no framing, no root).
void glow_writeQualifiedParameterTo(SBerOutput *pOut, const SGlowParameter *pParameter,
                                    EGlowFieldFlags fields, const int *pPath, int pathLength);
void glow_writeQualifiedNodeTo(SBerOutput *pOut, const SGlowNode *pNode, EGlowFieldFlags fields,
                               const int *pPath, int pathLength);
void glow_writeQualifiedFunctionTo(SBerOutput *pOut, const SGlowFunction *pFunction, EGlowFieldFlags fields,
                                   const int *pPath, int pathLength);
void glow_writeQualifiedCommandTo(SBerOutput *pOut, const SGlowCommand *pCommand, const int *pPath,
                                  int pathLength);

// Identifiers must be set, not empty, not start with a digit and hold no '/'. A bad one is
// reported with errorCode (511 when writing, 512 when reading) and false is returned.
bool glow_checkIdentifier(const char *pIdentifier, int errorCode);

#endif
