#include "glow.h"

#include "emberhooks.h"

#include <cstring>

void glowValue_init(SGlowValue *pThis)
{
    memset(pThis, 0, sizeof(*pThis));
}

void glowValue_copyFrom(SGlowValue *pThis, const SGlowValue *pSource)
{
    memcpy(pThis, pSource, sizeof(*pThis));
    if (pSource->type == GlowParameterType_String) {
        pThis->pString = ember_copyString(pSource->pString);
    } else if (pSource->type == GlowParameterType_Octets) {
        pThis->octets.pOctets = nullptr;
        pThis->octets.length = 0;
        if (pSource->octets.pOctets != nullptr && pSource->octets.length > 0) {
            pThis->octets.pOctets =
                static_cast<unsigned char *>(allocMemory(static_cast<size_t>(pSource->octets.length)));
            if (pThis->octets.pOctets != nullptr) {
                memcpy(pThis->octets.pOctets, pSource->octets.pOctets,
                       static_cast<size_t>(pSource->octets.length));
                pThis->octets.length = pSource->octets.length;
            }
        }
    }
}

void glowValue_free(SGlowValue *pThis)
{
    if (pThis->type == GlowParameterType_String)
        freeMemory(pThis->pString);
    else if (pThis->type == GlowParameterType_Octets)
        freeMemory(pThis->octets.pOctets);
    memset(pThis, 0, sizeof(*pThis));
}

void glowParameter_init(SGlowParameter *pThis)
{
    memset(pThis, 0, sizeof(*pThis));
}

void glowParameter_free(SGlowParameter *pThis)
{
    freeMemory(pThis->pIdentifier);
    freeMemory(pThis->pDescription);
    glowValue_free(&pThis->value);
    freeMemory(pThis->pFormat);
    freeMemory(pThis->pEnumeration);
    freeMemory(pThis->pFormula);
    memset(pThis, 0, sizeof(*pThis));
}

void glowNode_init(SGlowNode *pThis)
{
    memset(pThis, 0, sizeof(*pThis));
}

void glowNode_free(SGlowNode *pThis)
{
    freeMemory(pThis->pIdentifier);
    freeMemory(pThis->pDescription);
    memset(pThis, 0, sizeof(*pThis));
}

void glowTupleItemDescription_free(SGlowTupleItemDescription *pThis)
{
    freeMemory(pThis->pName);
    memset(pThis, 0, sizeof(*pThis));
}

void glowFunction_init(SGlowFunction *pThis)
{
    memset(pThis, 0, sizeof(*pThis));
}

static SGlowTupleItemDescription *allocTuple(int length)
{
    if (length <= 0)
        return nullptr;
    const size_t size = sizeof(SGlowTupleItemDescription) * static_cast<size_t>(length);
    SGlowTupleItemDescription *pTuple = static_cast<SGlowTupleItemDescription *>(allocMemory(size));
    if (pTuple != nullptr)
        memset(pTuple, 0, size);
    return pTuple;
}

static void freeTuple(SGlowTupleItemDescription *pTuple, int length)
{
    if (pTuple == nullptr)
        return;
    for (int i = 0; i < length; i++)
        glowTupleItemDescription_free(&pTuple[i]);
    freeMemory(pTuple);
}

void glowFunction_setArguments(SGlowFunction *pThis, int argumentsLength)
{
    freeTuple(pThis->pArguments, pThis->argumentsLength);
    pThis->pArguments = allocTuple(argumentsLength);
    pThis->argumentsLength = pThis->pArguments != nullptr ? argumentsLength : 0;
}

void glowFunction_setResult(SGlowFunction *pThis, int resultLength)
{
    freeTuple(pThis->pResult, pThis->resultLength);
    pThis->pResult = allocTuple(resultLength);
    pThis->resultLength = pThis->pResult != nullptr ? resultLength : 0;
}

void glowFunction_free(SGlowFunction *pThis)
{
    freeMemory(pThis->pIdentifier);
    freeMemory(pThis->pDescription);
    freeTuple(pThis->pArguments, pThis->argumentsLength);
    freeTuple(pThis->pResult, pThis->resultLength);
    memset(pThis, 0, sizeof(*pThis));
}

void glowInvocation_init(SGlowInvocation *pThis)
{
    memset(pThis, 0, sizeof(*pThis));
}

void glowInvocation_addArgument(SGlowInvocation *pThis, const SGlowValue *pValue)
{
    // The array doubles whenever it is full: 4, 8, 16, ... entries.
    const int length = pThis->argumentsLength;
    if (length == 0 || (length >= 4 && (length & (length - 1)) == 0)) {
        const int capacity = length == 0 ? 4 : length * 2;
        SGlowValue *pArguments =
            static_cast<SGlowValue *>(allocMemory(sizeof(SGlowValue) * static_cast<size_t>(capacity)));
        if (pArguments == nullptr)
            return;
        if (length > 0)
            memcpy(pArguments, pThis->pArguments, sizeof(SGlowValue) * static_cast<size_t>(length));
        freeMemory(pThis->pArguments);
        pThis->pArguments = pArguments;
    }
    glowValue_copyFrom(&pThis->pArguments[length], pValue);
    pThis->argumentsLength++;
}

void glowInvocation_free(SGlowInvocation *pThis)
{
    for (int i = 0; i < pThis->argumentsLength; i++)
        glowValue_free(&pThis->pArguments[i]);
    freeMemory(pThis->pArguments);
    memset(pThis, 0, sizeof(*pThis));
}

void glowCommand_init(SGlowCommand *pThis)
{
    memset(pThis, 0, sizeof(*pThis));
}

void glowCommand_free(SGlowCommand *pThis)
{
    glowInvocation_free(&pThis->invocation);
    memset(pThis, 0, sizeof(*pThis));
}

void glowStreamEntry_init(SGlowStreamEntry *pThis)
{
    memset(pThis, 0, sizeof(*pThis));
}

void glowStreamEntry_free(SGlowStreamEntry *pThis)
{
    glowValue_free(&pThis->streamValue);
    memset(pThis, 0, sizeof(*pThis));
}
