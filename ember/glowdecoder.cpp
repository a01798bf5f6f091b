#include "glowdecoder.h"

#include "emberhooks.h"
#include "glowtags.h"
#include "glowwriter.h"

#include <cstdio>
#include <cstring>

static SNonFramingGlowReader *decoderOf(SEmberAsyncReader *pReader)
{
    return reinterpret_cast<SNonFramingGlowReader *>(pReader);
}

// The container at depth (0 is the outermost), or null.
static const SEmberAsyncContainer *containerAt(const SEmberAsyncReader *pReader, int depth)
{
    return depth >= 0 && depth < pReader->stackDepth ? &pReader->stack[depth] : nullptr;
}

static bertype_t typeAt(const SEmberAsyncReader *pReader, int depth)
{
    const SEmberAsyncContainer *pContainer = containerAt(pReader, depth);
    return pContainer != nullptr ? pContainer->type : 0;
}

static bool isContextTag(SBerTag tag, unsigned int number)
{
    return berTag_getClass(tag) == BerClass_Context && tag.number == number;
}

static bool isQualified(bertype_t type)
{
    return type == GlowType_QualifiedParameter || type == GlowType_QualifiedNode ||
           type == GlowType_QualifiedFunction || type == GlowType_QualifiedMatrix;
}

static bool isNumbered(bertype_t type)
{
    return type == GlowType_Parameter || type == GlowType_Node || type == GlowType_Function ||
           type == GlowType_Matrix;
}

static bool isParameter(bertype_t type)
{
    return type == GlowType_Parameter || type == GlowType_QualifiedParameter;
}

static bool isNode(bertype_t type)
{
    return type == GlowType_Node || type == GlowType_QualifiedNode;
}

static bool isFunction(bertype_t type)
{
    return type == GlowType_Function || type == GlowType_QualifiedFunction;
}

static const char *qualifiedName(bertype_t type)
{
    switch (type) {
    case GlowType_QualifiedNode:
        return "QualifiedNode";
    case GlowType_QualifiedFunction:
        return "QualifiedFunction";
    case GlowType_QualifiedMatrix:
        return "QualifiedMatrix";
    default:
        return "QualifiedParameter";
    }
}

// A string copy of the current item, or null if it is no string.
static char *readString(const SBerReader *pItem)
{
    if (pItem->type != BerType_UTF8String || pItem->length < 0) {
        ember_throwError(EmberError_InvalidString);
        return nullptr;
    }
    char *pString = static_cast<char *>(allocMemory(static_cast<size_t>(pItem->length) + 1));
    if (pString != nullptr)
        berReader_getString(pItem, pString, pItem->length + 1);
    return pString;
}

static void replaceString(char **ppTarget, char *pValue)
{
    freeMemory(*ppTarget);
    *ppTarget = pValue;
}

// Decodes the current item as a value by its universal type; false for any other type.
static bool readValue(const SBerReader *pItem, SGlowValue *pValue)
{
    glowValue_free(pValue);
    switch (pItem->type) {
    case BerType_Boolean:
        pValue->type = GlowParameterType_Boolean;
        pValue->boolean = berReader_getBoolean(pItem);
        return true;
    case BerType_Integer:
        pValue->type = GlowParameterType_Integer;
        pValue->integer = berReader_getLong(pItem);
        return true;
    case BerType_Real:
        pValue->type = GlowParameterType_Real;
        pValue->real = berReader_getReal(pItem);
        return true;
    case BerType_UTF8String:
        pValue->pString = readString(pItem);
        pValue->type = GlowParameterType_String;
        return true;
    case BerType_OctetString:
        pValue->type = GlowParameterType_Octets;
        if (pItem->length > 0) {
            pValue->octets.pOctets =
                static_cast<unsigned char *>(allocMemory(static_cast<size_t>(pItem->length)));
            if (pValue->octets.pOctets != nullptr)
                pValue->octets.length =
                    berReader_getOctetString(pItem, pValue->octets.pOctets, pItem->length);
        }
        return true;
    default:
        ember_throwError(GlowError_ReaderValueType);
        return false;
    }
}

static bool readMinMax(const SBerReader *pItem, SGlowMinMax *pValue)
{
    if (pItem->type == BerType_Integer) {
        pValue->type = GlowParameterType_Integer;
        pValue->integer = berReader_getLong(pItem);
        return true;
    }
    if (pItem->type == BerType_Real) {
        pValue->type = GlowParameterType_Real;
        pValue->real = berReader_getReal(pItem);
        return true;
    }
    ember_throwError(GlowError_ReaderValueType);
    return false;
}

static void unknownItem(SNonFramingGlowReader *pThis)
{
    if (pThis->onUnknownItem != nullptr)
        pThis->onUnknownItem(&pThis->base.base, pThis->state);
}

static void readParameterField(SNonFramingGlowReader *pThis, const SBerReader *pItem)
{
    SGlowParameter *pParameter = &pThis->parameter;
    int flag = 0;
    switch (pItem->tag.number) {
    case GlowParameterContentsTag_Identifier: {
        char *pIdentifier = readString(pItem);
        if (pIdentifier != nullptr && glow_checkIdentifier(pIdentifier, GlowError_ReaderInvalidIdentifier)) {
            replaceString(&pParameter->pIdentifier, pIdentifier);
            flag = GlowFieldFlag_Identifier;
        } else {
            freeMemory(pIdentifier);
        }
        break;
    }
    case GlowParameterContentsTag_Description:
        replaceString(&pParameter->pDescription, readString(pItem));
        flag = pParameter->pDescription != nullptr ? GlowFieldFlag_Description : 0;
        break;
    case GlowParameterContentsTag_Value:
        flag = readValue(pItem, &pParameter->value) ? GlowFieldFlag_Value : 0;
        break;
    case GlowParameterContentsTag_Minimum:
        flag = readMinMax(pItem, &pParameter->minimum) ? GlowFieldFlag_Minimum : 0;
        break;
    case GlowParameterContentsTag_Maximum:
        flag = readMinMax(pItem, &pParameter->maximum) ? GlowFieldFlag_Maximum : 0;
        break;
    case GlowParameterContentsTag_Access:
        pParameter->access = static_cast<EGlowAccess>(berReader_getInteger(pItem));
        flag = GlowFieldFlag_Access;
        break;
    case GlowParameterContentsTag_Factor:
        pParameter->factor = berReader_getInteger(pItem);
        flag = GlowFieldFlag_Factor;
        break;
    case GlowParameterContentsTag_IsOnline:
        pParameter->isOnline = berReader_getBoolean(pItem);
        flag = GlowFieldFlag_IsOnline;
        break;
    case GlowParameterContentsTag_Step:
        pParameter->step = berReader_getInteger(pItem);
        flag = GlowFieldFlag_Step;
        break;
    case GlowParameterContentsTag_Type:
        pParameter->type = static_cast<EGlowParameterType>(berReader_getInteger(pItem));
        flag = GlowFieldFlag_Type;
        break;
    case GlowParameterContentsTag_StreamIdentifier:
        pParameter->streamIdentifier = berReader_getInteger(pItem);
        flag = GlowFieldFlag_StreamIdentifier;
        break;
    default:
        unknownItem(pThis);
        break;
    }
    pThis->parameterFields = static_cast<EGlowFieldFlags>(pThis->parameterFields | flag);
}

static void readNodeField(SNonFramingGlowReader *pThis, const SBerReader *pItem)
{
    SGlowNode *pNode = &pThis->node;
    int flag = 0;
    switch (pItem->tag.number) {
    case GlowNodeContentsTag_Identifier: {
        char *pIdentifier = readString(pItem);
        if (pIdentifier != nullptr && glow_checkIdentifier(pIdentifier, GlowError_ReaderInvalidIdentifier)) {
            replaceString(&pNode->pIdentifier, pIdentifier);
            flag = GlowFieldFlag_Identifier;
        } else {
            freeMemory(pIdentifier);
        }
        break;
    }
    case GlowNodeContentsTag_Description:
        replaceString(&pNode->pDescription, readString(pItem));
        flag = pNode->pDescription != nullptr ? GlowFieldFlag_Description : 0;
        break;
    case GlowNodeContentsTag_IsRoot:
        pNode->isRoot = berReader_getBoolean(pItem);
        flag = GlowFieldFlag_IsRoot;
        break;
    case GlowNodeContentsTag_IsOnline:
        pNode->isOnline = berReader_getBoolean(pItem);
        flag = GlowFieldFlag_IsOnline;
        break;
    default:
        unknownItem(pThis);
        break;
    }
    pThis->nodeFields = static_cast<EGlowFieldFlags>(pThis->nodeFields | flag);
}

static void readFunctionField(SNonFramingGlowReader *pThis, const SBerReader *pItem)
{
    SGlowFunction *pFunction = &pThis->function;
    if (pItem->tag.number == GlowFunctionContentsTag_Identifier) {
        char *pIdentifier = readString(pItem);
        if (pIdentifier != nullptr && glow_checkIdentifier(pIdentifier, GlowError_ReaderInvalidIdentifier)) {
            replaceString(&pFunction->pIdentifier, pIdentifier);
            pThis->functionFields =
                static_cast<EGlowFieldFlags>(pThis->functionFields | GlowFieldFlag_Identifier);
        } else {
            freeMemory(pIdentifier);
        }
    } else if (pItem->tag.number == GlowFunctionContentsTag_Description) {
        replaceString(&pFunction->pDescription, readString(pItem));
        if (pFunction->pDescription != nullptr)
            pThis->functionFields =
                static_cast<EGlowFieldFlags>(pThis->functionFields | GlowFieldFlag_Description);
    } else {
        unknownItem(pThis);
    }
}

// A field of a TupleItemDescription inside a function's arguments [2] or result [3].
static void readTupleItemField(SNonFramingGlowReader *pThis, const SBerReader *pItem, unsigned int listTag)
{
    SGlowFunction *pFunction = &pThis->function;
    const bool isArguments = listTag == GlowFunctionContentsTag_Arguments;
    SGlowTupleItemDescription *pList = isArguments ? pFunction->pArguments : pFunction->pResult;
    const int length = isArguments ? pFunction->argumentsLength : pFunction->resultLength;
    if (pList == nullptr || length == 0)
        return;
    SGlowTupleItemDescription *pEntry = &pList[length - 1];
    if (pItem->tag.number == GlowTupleItemDescriptionTag_Type)
        pEntry->type = static_cast<EGlowParameterType>(berReader_getInteger(pItem));
    else if (pItem->tag.number == GlowTupleItemDescriptionTag_Name)
        replaceString(&pEntry->pName, readString(pItem));
    else
        unknownItem(pThis);
}

// Appends an empty description to the function's arguments or result.
static void addTupleItem(SGlowFunction *pFunction, unsigned int listTag)
{
    const bool isArguments = listTag == GlowFunctionContentsTag_Arguments;
    SGlowTupleItemDescription **ppList = isArguments ? &pFunction->pArguments : &pFunction->pResult;
    int *pLength = isArguments ? &pFunction->argumentsLength : &pFunction->resultLength;
    const size_t size = sizeof(SGlowTupleItemDescription) * static_cast<size_t>(*pLength + 1);
    SGlowTupleItemDescription *pList = static_cast<SGlowTupleItemDescription *>(allocMemory(size));
    if (pList == nullptr)
        return;
    memset(pList, 0, size);
    if (*pLength > 0)
        memcpy(pList, *ppList, sizeof(SGlowTupleItemDescription) * static_cast<size_t>(*pLength));
    freeMemory(*ppList);
    *ppList = pList;
    (*pLength)++;
}

static void onNewContainer(SEmberAsyncReader *pReader)
{
    SNonFramingGlowReader *pThis = decoderOf(pReader);
    const int depth = pReader->stackDepth - 1;
    const SEmberAsyncContainer *pContainer = &pReader->stack[depth];
    const bertype_t type = pContainer->type;
    pThis->pathLengthAtDepth[depth] = pThis->pathLength;

    if (isQualified(type)) {
        if (depth != 1 || typeAt(pReader, 0) != GlowType_RootElementCollection) {
            char message[64];
            snprintf(message, sizeof(message), "%s encountered on non-root level!", qualifiedName(type));
            throwError(GlowError_NonRootQualified, message);
        }
        pThis->pathLength = 0; // until the path arrives
    }
    if (isParameter(type)) {
        glowParameter_free(&pThis->parameter);
        pThis->parameterFields = static_cast<EGlowFieldFlags>(0);
    } else if (isNode(type)) {
        glowNode_free(&pThis->node);
        pThis->nodeFields = static_cast<EGlowFieldFlags>(0);
    } else if (isFunction(type)) {
        glowFunction_free(&pThis->function);
        pThis->functionFields = static_cast<EGlowFieldFlags>(0);
    } else if (type == GlowType_Command) {
        glowCommand_free(&pThis->command);
        pThis->hasDirFieldMask = false;
    } else if (type == GlowType_StreamEntry) {
        glowStreamEntry_free(&pThis->streamEntry);
    } else if (type == GlowType_TupleItemDescription && depth >= 2 &&
               typeAt(pReader, depth - 1) == BerType_Sequence && isFunction(typeAt(pReader, depth - 3))) {
        // Function contents SET at depth - 2, its arguments or result SEQUENCE at depth - 1.
        const unsigned int listTag = pReader->stack[depth - 1].tag.number;
        addTupleItem(&pThis->function, listTag);
        if (listTag == GlowFunctionContentsTag_Arguments || listTag == GlowFunctionContentsTag_Result)
            pThis->functionFields = GlowFieldFlag_All;
    }
}

static void onContainerEnd(SNonFramingGlowReader *pThis, const SBerReader *pItem)
{
    SEmberAsyncReader *pReader = &pThis->base;
    const int depth = pReader->stackDepth; // the depth the closed container had
    const bertype_t parentType = typeAt(pReader, depth - 1);
    const bertype_t type = pItem->type;

    if (type == BerType_Set && isContextTag(pItem->tag, GlowElementTag_Contents)) {
        if (isParameter(parentType)) {
            if (pThis->onParameter != nullptr)
                pThis->onParameter(&pThis->parameter, pThis->parameterFields, pThis->path, pThis->pathLength,
                                   pThis->state);
            glowParameter_free(&pThis->parameter);
            pThis->parameterFields = static_cast<EGlowFieldFlags>(0);
        } else if (isNode(parentType)) {
            if (pThis->onNode != nullptr)
                pThis->onNode(&pThis->node, pThis->nodeFields, pThis->path, pThis->pathLength, pThis->state);
            glowNode_free(&pThis->node);
            pThis->nodeFields = static_cast<EGlowFieldFlags>(0);
        } else if (isFunction(parentType)) {
            if (pThis->onFunction != nullptr)
                pThis->onFunction(&pThis->function, pThis->functionFields, pThis->path, pThis->pathLength,
                                  pThis->state);
            glowFunction_free(&pThis->function);
            pThis->functionFields = static_cast<EGlowFieldFlags>(0);
        }
    } else if (type == GlowType_Command) {
        SGlowCommand *pCommand = &pThis->command;
        if (pCommand->number == GlowCommandType_GetDirectory &&
            (!pThis->hasDirFieldMask || pCommand->dirFieldMask == 0))
            pCommand->dirFieldMask = GlowFieldFlag_All;
        if (pThis->onCommand != nullptr)
            pThis->onCommand(pCommand, pThis->path, pThis->pathLength, pThis->state);
        glowCommand_free(pCommand);
        pThis->hasDirFieldMask = false;
    } else if (type == GlowType_StreamEntry) {
        if (pThis->onStreamEntry != nullptr)
            pThis->onStreamEntry(&pThis->streamEntry, pThis->state);
        glowStreamEntry_free(&pThis->streamEntry);
    }
    if (isQualified(type) || isNumbered(type)) {
        const int saved = pThis->pathLengthAtDepth[depth];
        pThis->pathLength = saved >= 0 && saved <= GLOW_MAX_PATH ? saved : 0;
    }
}

static void onPrimitive(SNonFramingGlowReader *pThis, const SBerReader *pItem)
{
    SEmberAsyncReader *pReader = &pThis->base;
    const int depth = pReader->stackDepth - 1; // the parent's depth
    const SEmberAsyncContainer *pParent = containerAt(pReader, depth);
    if (pParent == nullptr || berTag_getClass(pItem->tag) != BerClass_Context) {
        unknownItem(pThis);
        return;
    }
    const bertype_t parentType = pParent->type;
    const bertype_t grandType = typeAt(pReader, depth - 1);
    const unsigned int tag = pItem->tag.number;

    if (isNumbered(parentType) && tag == GlowElementTag_Number) {
        const int base = pThis->pathLengthAtDepth[depth];
        if (base < GLOW_MAX_PATH) {
            pThis->path[base] = berReader_getInteger(pItem);
            pThis->pathLength = base + 1;
        }
    } else if (isQualified(parentType) && tag == GlowElementTag_Number) {
        pThis->pathLength = berReader_getRelativeOid(pItem, pThis->path, GLOW_MAX_PATH);
        if (pThis->pathLength == 0) {
            char message[64];
            snprintf(message, sizeof(message), "empty path in %s!", qualifiedName(parentType));
            throwError(GlowError_EmptyPath, message);
        }
    } else if (parentType == BerType_Set && isContextTag(pParent->tag, GlowElementTag_Contents) &&
               isParameter(grandType)) {
        readParameterField(pThis, pItem);
    } else if (parentType == BerType_Set && isContextTag(pParent->tag, GlowElementTag_Contents) &&
               isNode(grandType)) {
        readNodeField(pThis, pItem);
    } else if (parentType == BerType_Set && isContextTag(pParent->tag, GlowElementTag_Contents) &&
               isFunction(grandType)) {
        readFunctionField(pThis, pItem);
    } else if (parentType == GlowType_TupleItemDescription && isFunction(typeAt(pReader, depth - 3))) {
        readTupleItemField(pThis, pItem, pReader->stack[depth - 1].tag.number);
    } else if (parentType == GlowType_Command && tag == GlowCommandTag_Number) {
        pThis->command.number = berReader_getInteger(pItem);
    } else if (parentType == GlowType_Command && tag == GlowCommandTag_DirFieldMask) {
        pThis->command.dirFieldMask = berReader_getInteger(pItem);
        pThis->hasDirFieldMask = true;
    } else if (parentType == GlowType_Invocation && tag == GlowInvocationTag_InvocationId) {
        pThis->command.invocation.invocationId = berReader_getInteger(pItem);
    } else if (parentType == BerType_Sequence && isContextTag(pParent->tag, GlowInvocationTag_Arguments) &&
               grandType == GlowType_Invocation) {
        SGlowValue value;
        glowValue_init(&value);
        if (readValue(pItem, &value))
            glowInvocation_addArgument(&pThis->command.invocation, &value);
        glowValue_free(&value);
    } else if (parentType == GlowType_StreamEntry && tag == GlowStreamEntryTag_StreamIdentifier) {
        pThis->streamEntry.streamIdentifier = berReader_getInteger(pItem);
    } else if (parentType == GlowType_StreamEntry && tag == GlowStreamEntryTag_StreamValue) {
        readValue(pItem, &pThis->streamEntry.streamValue);
    } else {
        unknownItem(pThis);
    }
}

static void onItemReady(SEmberAsyncReader *pReader)
{
    SNonFramingGlowReader *pThis = decoderOf(pReader);
    if (pReader->base.isContainer)
        onContainerEnd(pThis, &pReader->base);
    else
        onPrimitive(pThis, &pReader->base);
}

void nonFramingGlowReader_init(SNonFramingGlowReader *pThis, onNode_t onNode, onParameter_t onParameter,
                               onCommand_t onCommand, onStreamEntry_t onStreamEntry, void *state)
{
    memset(pThis, 0, sizeof(*pThis));
    emberAsyncReader_init(&pThis->base, onNewContainer, onItemReady);
    pThis->onNode = onNode;
    pThis->onParameter = onParameter;
    pThis->onCommand = onCommand;
    pThis->onStreamEntry = onStreamEntry;
    pThis->state = state;
}

void nonFramingGlowReader_readBytes(SNonFramingGlowReader *pThis, const unsigned char *pBytes, int count)
{
    emberAsyncReader_readBytes(&pThis->base, pBytes, count);
}

static void freeElements(SNonFramingGlowReader *pThis)
{
    glowParameter_free(&pThis->parameter);
    glowNode_free(&pThis->node);
    glowFunction_free(&pThis->function);
    glowCommand_free(&pThis->command);
    glowStreamEntry_free(&pThis->streamEntry);
    pThis->parameterFields = static_cast<EGlowFieldFlags>(0);
    pThis->nodeFields = static_cast<EGlowFieldFlags>(0);
    pThis->functionFields = static_cast<EGlowFieldFlags>(0);
    pThis->hasDirFieldMask = false;
}

void nonFramingGlowReader_reset(SNonFramingGlowReader *pThis)
{
    emberAsyncReader_reset(&pThis->base);
    freeElements(pThis);
    pThis->pathLength = 0;
}

void nonFramingGlowReader_free(SNonFramingGlowReader *pThis)
{
    freeElements(pThis);
    emberAsyncReader_free(&pThis->base);
    memset(pThis, 0, sizeof(*pThis));
}
