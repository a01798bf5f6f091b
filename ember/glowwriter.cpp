#include "glowwriter.h"

#include "emberhooks.h"
#include "emberwriter.h"
#include "glowtags.h"

#include <cstring>

static const unsigned char s_glowAppBytes[2] = {GLOW_DTD_VERSION_MINOR, GLOW_DTD_VERSION_MAJOR};

static SBerTag contextTag(unsigned int number)
{
    return berTag_make(BerClass_Context, number);
}

static SBerOutput *berOutputOf(SGlowOutput *pThis)
{
    return &pThis->base.base.base;
}

void glowOutput_init(SGlowOutput *pThis, unsigned char *pMemory, int size, unsigned char slot)
{
    berFramingOutput_init(&pThis->base, pMemory, size, slot, S101_DTD_GLOW, s_glowAppBytes,
                          sizeof(s_glowAppBytes));
    pThis->packageCount = 0;
    pThis->isLastPackage = false;
}

void glowOutput_beginPackage(SGlowOutput *pThis, bool isLastPackage)
{
    const bool isFirst = pThis->packageCount == 0;
    unsigned char flags = isFirst ? S101_FLAG_FIRST : 0;
    if (isLastPackage)
        flags |= S101_FLAG_LAST;
    pThis->isLastPackage = isLastPackage;
    pThis->packageCount++;
    berFramingOutput_writeHeader(&pThis->base, flags);
    if (isFirst)
        ember_writeContainerBegin(berOutputOf(pThis), berTag_make(BerClass_Application, 0),
                                  GlowType_RootElementCollection);
}

int glowOutput_finishPackage(SGlowOutput *pThis)
{
    if (pThis->isLastPackage) {
        ember_writeContainerEnd(berOutputOf(pThis));
        pThis->packageCount = 0;
        pThis->isLastPackage = false;
    }
    return berFramingOutput_finish(&pThis->base);
}

void glowOutput_free(SGlowOutput *pThis)
{
    memset(pThis, 0, sizeof(*pThis));
}

bool glow_checkIdentifier(const char *pIdentifier, int errorCode)
{
    const char *pMessage = nullptr;
    if (pIdentifier == nullptr)
        pMessage = "identifier must not be NULL!";
    else if (pIdentifier[0] == 0)
        pMessage = "identifier must not be empty!";
    else if (pIdentifier[0] >= '0' && pIdentifier[0] <= '9')
        pMessage = "identifier must not begin with a number!";
    else if (strchr(pIdentifier, '/') != nullptr)
        pMessage = "identifier must not contain the '/' character!";
    if (pMessage == nullptr)
        return true;
    throwError(errorCode, pMessage);
    return false;
}

static void writeIdentifier(SBerOutput *pOut, unsigned int tag, const char *pIdentifier)
{
    if (glow_checkIdentifier(pIdentifier, GlowError_InvalidIdentifier))
        ember_writeString(pOut, contextTag(tag), pIdentifier);
}

static void writeOptionalString(SBerOutput *pOut, unsigned int tag, const char *pValue)
{
    if (pValue != nullptr)
        ember_writeString(pOut, contextTag(tag), pValue);
}

static void writeValue(SBerOutput *pOut, SBerTag tag, const SGlowValue *pValue)
{
    switch (pValue->type) {
    case GlowParameterType_Integer:
        ember_writeLong(pOut, tag, pValue->integer);
        break;
    case GlowParameterType_Real:
        ember_writeReal(pOut, tag, pValue->real);
        break;
    case GlowParameterType_String:
        ember_writeString(pOut, tag, pValue->pString != nullptr ? pValue->pString : "");
        break;
    case GlowParameterType_Boolean:
        ember_writeBoolean(pOut, tag, pValue->boolean);
        break;
    case GlowParameterType_Octets:
        ember_writeOctetString(pOut, tag, pValue->octets.pOctets, pValue->octets.length);
        break;
    default:
        ember_throwError(GlowError_ValueType);
        break;
    }
}

static void writeMinMax(SBerOutput *pOut, unsigned int tag, const SGlowMinMax *pValue)
{
    if (pValue->type == GlowParameterType_Integer)
        ember_writeLong(pOut, contextTag(tag), pValue->integer);
    else if (pValue->type == GlowParameterType_Real)
        ember_writeReal(pOut, contextTag(tag), pValue->real);
    else
        ember_throwError(GlowError_MinMaxType);
}

static void writePath(SBerOutput *pOut, const int *pPath, int pathLength)
{
    ember_writeRelativeOid(pOut, contextTag(GlowElementTag_Number), pPath, pathLength);
}

void glow_writeQualifiedParameterTo(SBerOutput *pOut, const SGlowParameter *pParameter,
                                    EGlowFieldFlags fields, const int *pPath, int pathLength)
{
    const int f = static_cast<int>(fields);
    ember_writeContainerBegin(pOut, contextTag(GLOW_COLLECTION_ITEM_TAG), GlowType_QualifiedParameter);
    writePath(pOut, pPath, pathLength);
    ember_writeSetBegin(pOut, contextTag(GlowElementTag_Contents));
    // The field order of the DTD's writers, which is not the order of the tag numbers.
    if (f & GlowFieldFlag_Identifier)
        writeIdentifier(pOut, GlowParameterContentsTag_Identifier, pParameter->pIdentifier);
    if (f & GlowFieldFlag_Description)
        writeOptionalString(pOut, GlowParameterContentsTag_Description, pParameter->pDescription);
    if (f & GlowFieldFlag_Value)
        writeValue(pOut, contextTag(GlowParameterContentsTag_Value), &pParameter->value);
    if (f & GlowFieldFlag_Minimum)
        writeMinMax(pOut, GlowParameterContentsTag_Minimum, &pParameter->minimum);
    if (f & GlowFieldFlag_Maximum)
        writeMinMax(pOut, GlowParameterContentsTag_Maximum, &pParameter->maximum);
    if (f & GlowFieldFlag_Access)
        ember_writeInteger(pOut, contextTag(GlowParameterContentsTag_Access), pParameter->access);
    if (f & GlowFieldFlag_Format)
        writeOptionalString(pOut, GlowParameterContentsTag_Format, pParameter->pFormat);
    if (f & GlowFieldFlag_Factor)
        ember_writeInteger(pOut, contextTag(GlowParameterContentsTag_Factor), pParameter->factor);
    if (f & GlowFieldFlag_IsOnline)
        ember_writeBoolean(pOut, contextTag(GlowParameterContentsTag_IsOnline), pParameter->isOnline);
    if (f & GlowFieldFlag_Step)
        ember_writeInteger(pOut, contextTag(GlowParameterContentsTag_Step), pParameter->step);
    if (f & GlowFieldFlag_Type)
        ember_writeInteger(pOut, contextTag(GlowParameterContentsTag_Type), pParameter->type);
    if (f & GlowFieldFlag_StreamIdentifier)
        ember_writeInteger(pOut, contextTag(GlowParameterContentsTag_StreamIdentifier),
                           pParameter->streamIdentifier);
    if (f & GlowFieldFlag_Formula)
        writeOptionalString(pOut, GlowParameterContentsTag_Formula, pParameter->pFormula);
    if (f & GlowFieldFlag_Enumeration)
        writeOptionalString(pOut, GlowParameterContentsTag_Enumeration, pParameter->pEnumeration);
    if (f & GlowFieldFlag_StreamDescriptor) {
        ember_writeContainerBegin(pOut, contextTag(GlowParameterContentsTag_StreamDescriptor),
                                  GlowType_StreamDescription);
        ember_writeInteger(pOut, contextTag(GlowStreamDescriptionTag_Format),
                           pParameter->streamDescriptor.format);
        ember_writeInteger(pOut, contextTag(GlowStreamDescriptionTag_Offset),
                           pParameter->streamDescriptor.offset);
        ember_writeContainerEnd(pOut);
    }
    ember_writeContainerEnd(pOut);
    ember_writeContainerEnd(pOut);
}

void glow_writeQualifiedNodeTo(SBerOutput *pOut, const SGlowNode *pNode, EGlowFieldFlags fields,
                               const int *pPath, int pathLength)
{
    const int f = static_cast<int>(fields);
    ember_writeContainerBegin(pOut, contextTag(GLOW_COLLECTION_ITEM_TAG), GlowType_QualifiedNode);
    writePath(pOut, pPath, pathLength);
    if (f != 0) {
        ember_writeSetBegin(pOut, contextTag(GlowElementTag_Contents));
        if (f & GlowFieldFlag_Identifier)
            writeIdentifier(pOut, GlowNodeContentsTag_Identifier, pNode->pIdentifier);
        if (f & GlowFieldFlag_Description)
            writeOptionalString(pOut, GlowNodeContentsTag_Description, pNode->pDescription);
        if (f & GlowFieldFlag_IsRoot)
            ember_writeBoolean(pOut, contextTag(GlowNodeContentsTag_IsRoot), pNode->isRoot);
        if (f & GlowFieldFlag_IsOnline)
            ember_writeBoolean(pOut, contextTag(GlowNodeContentsTag_IsOnline), pNode->isOnline);
        ember_writeContainerEnd(pOut);
    }
    ember_writeContainerEnd(pOut);
}

static void writeTupleDescription(SBerOutput *pOut, unsigned int tag, const SGlowTupleItemDescription *pItems,
                                  int length)
{
    ember_writeSequenceBegin(pOut, contextTag(tag));
    for (int i = 0; i < length; i++) {
        ember_writeContainerBegin(pOut, contextTag(GLOW_COLLECTION_ITEM_TAG), GlowType_TupleItemDescription);
        ember_writeInteger(pOut, contextTag(GlowTupleItemDescriptionTag_Type), pItems[i].type);
        writeOptionalString(pOut, GlowTupleItemDescriptionTag_Name, pItems[i].pName);
        ember_writeContainerEnd(pOut);
    }
    ember_writeContainerEnd(pOut);
}

void glow_writeQualifiedFunctionTo(SBerOutput *pOut, const SGlowFunction *pFunction, EGlowFieldFlags fields,
                                   const int *pPath, int pathLength)
{
    const int f = static_cast<int>(fields);
    ember_writeContainerBegin(pOut, contextTag(GLOW_COLLECTION_ITEM_TAG), GlowType_QualifiedFunction);
    writePath(pOut, pPath, pathLength);
    ember_writeSetBegin(pOut, contextTag(GlowElementTag_Contents));
    if (f & GlowFieldFlag_Identifier)
        writeIdentifier(pOut, GlowFunctionContentsTag_Identifier, pFunction->pIdentifier);
    if (f & GlowFieldFlag_Description)
        writeOptionalString(pOut, GlowFunctionContentsTag_Description, pFunction->pDescription);
    if (fields == GlowFieldFlag_All) {
        if (pFunction->pArguments != nullptr && pFunction->argumentsLength > 0)
            writeTupleDescription(pOut, GlowFunctionContentsTag_Arguments, pFunction->pArguments,
                                  pFunction->argumentsLength);
        if (pFunction->pResult != nullptr && pFunction->resultLength > 0)
            writeTupleDescription(pOut, GlowFunctionContentsTag_Result, pFunction->pResult,
                                  pFunction->resultLength);
    }
    ember_writeContainerEnd(pOut);
    ember_writeContainerEnd(pOut);
}

void glow_writeQualifiedCommandTo(SBerOutput *pOut, const SGlowCommand *pCommand, const int *pPath,
                                  int pathLength)
{
    if (pathLength > 0) {
        ember_writeContainerBegin(pOut, contextTag(GLOW_COLLECTION_ITEM_TAG), GlowType_QualifiedNode);
        writePath(pOut, pPath, pathLength);
        ember_writeContainerBegin(pOut, contextTag(GlowElementTag_Children), GlowType_ElementCollection);
    }
    ember_writeContainerBegin(pOut, contextTag(GLOW_COLLECTION_ITEM_TAG), GlowType_Command);
    ember_writeInteger(pOut, contextTag(GlowCommandTag_Number), pCommand->number);
    if (pCommand->number == GlowCommandType_GetDirectory && pCommand->dirFieldMask != 0) {
        ember_writeInteger(pOut, contextTag(GlowCommandTag_DirFieldMask), pCommand->dirFieldMask);
    } else if (pCommand->number == GlowCommandType_Invoke) {
        const SGlowInvocation *pInvocation = &pCommand->invocation;
        ember_writeContainerBegin(pOut, contextTag(GlowCommandTag_Invocation), GlowType_Invocation);
        ember_writeInteger(pOut, contextTag(GlowInvocationTag_InvocationId), pInvocation->invocationId);
        ember_writeSequenceBegin(pOut, contextTag(GlowInvocationTag_Arguments));
        for (int i = 0; i < pInvocation->argumentsLength; i++)
            writeValue(pOut, contextTag(GLOW_COLLECTION_ITEM_TAG), &pInvocation->pArguments[i]);
        ember_writeContainerEnd(pOut);
        ember_writeContainerEnd(pOut);
    }
    ember_writeContainerEnd(pOut);
    if (pathLength > 0) {
        ember_writeContainerEnd(pOut);
        ember_writeContainerEnd(pOut);
    }
}

void glow_writeQualifiedParameter(SGlowOutput *pOut, const SGlowParameter *pParameter, EGlowFieldFlags fields,
                                  const int *pPath, int pathLength)
{
    glow_writeQualifiedParameterTo(berOutputOf(pOut), pParameter, fields, pPath, pathLength);
}

void glow_writeQualifiedNode(SGlowOutput *pOut, const SGlowNode *pNode, EGlowFieldFlags fields,
                             const int *pPath, int pathLength)
{
    glow_writeQualifiedNodeTo(berOutputOf(pOut), pNode, fields, pPath, pathLength);
}

void glow_writeQualifiedFunction(SGlowOutput *pOut, const SGlowFunction *pFunction, EGlowFieldFlags fields,
                                 const int *pPath, int pathLength)
{
    glow_writeQualifiedFunctionTo(berOutputOf(pOut), pFunction, fields, pPath, pathLength);
}

void glow_writeQualifiedCommand(SGlowOutput *pOut, const SGlowCommand *pCommand, const int *pPath,
                                int pathLength)
{
    glow_writeQualifiedCommandTo(berOutputOf(pOut), pCommand, pPath, pathLength);
}
