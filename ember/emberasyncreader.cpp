#include "emberasyncreader.h"

#include "emberhooks.h"

#include <climits>
#include <cstring>

void emberAsyncReader_init(SEmberAsyncReader *pThis, emberAsyncReader_onNewContainer_t onNewContainer,
                           emberAsyncReader_onItemReady_t onItemReady)
{
    memset(pThis, 0, sizeof(*pThis));
    berReader_init(&pThis->base);
    pThis->onNewContainer = onNewContainer;
    pThis->onItemReady = onItemReady;
}

// Forgets the item under way and waits for the next tag.
static void resetItem(SEmberAsyncReader *pThis)
{
    pThis->state = EmberAsyncState_Tag;
    pThis->bytesRead = 0;
    pThis->bytesExpected = 0;
    pThis->accumulator = 0;
    pThis->isOuterPending = false;
    pThis->pendingOuterLength = 0;
    pThis->pendingOuterConsumed = 0;
    pThis->isSkippingValue = false;
}

void emberAsyncReader_reset(SEmberAsyncReader *pThis)
{
    resetItem(pThis);
    berReader_reset(&pThis->base);
    pThis->stackDepth = 0;
}

void emberAsyncReader_free(SEmberAsyncReader *pThis)
{
    berReader_free(&pThis->base);
    memset(pThis, 0, sizeof(*pThis));
}

const SEmberAsyncContainer *emberAsyncReader_top(const SEmberAsyncReader *pThis)
{
    return pThis->stackDepth > 0 ? &pThis->stack[pThis->stackDepth - 1] : nullptr;
}

static bool isItemInProgress(const SEmberAsyncReader *pThis)
{
    return pThis->state != EmberAsyncState_Tag || pThis->bytesRead > 0 || pThis->isOuterPending;
}

static bool push(SEmberAsyncReader *pThis, const SEmberAsyncContainer *pEntry)
{
    if (pThis->stackDepth >= EMBER_ASYNC_STACK_SIZE) {
        ember_throwError(EmberError_StackOverflow);
        return false;
    }
    pThis->stack[pThis->stackDepth++] = *pEntry;
    return true;
}

// Closes every innermost container that is complete, innermost first.
static void closeCompleteContainers(SEmberAsyncReader *pThis)
{
    while (pThis->stackDepth > 0) {
        SEmberAsyncContainer *pTop = &pThis->stack[pThis->stackDepth - 1];
        if (!pTop->isInnerDone && pTop->length >= 0 && pTop->consumed >= pTop->length) {
            if (pTop->consumed > pTop->length || isItemInProgress(pThis)) {
                ember_throwError(EmberError_UnexpectedEndOfContainer);
                resetItem(pThis);
            }
            pTop->isInnerDone = true;
        }
        const int outerSoFar = pTop->headerLength + pTop->consumed + pTop->trailing;
        if (pTop->outerLength >= 0 && outerSoFar > pTop->outerLength) {
            // The outer length ended inside the contents: close the container here.
            ember_throwError(EmberError_UnexpectedEndOfContainer);
            resetItem(pThis);
            pTop->isInnerDone = true;
        } else if (!pTop->isInnerDone) {
            break;
        } else if (pTop->outerLength >= 0) {
            if (outerSoFar != pTop->outerLength)
                ember_throwError(EmberError_UnexpectedEndOfContainer);
        } else if (!pTop->isOuterDone) {
            break;
        }

        const SEmberAsyncContainer closed = *pTop;
        pThis->stackDepth--;
        if (pThis->stackDepth > 0) {
            SEmberAsyncContainer *pParent = &pThis->stack[pThis->stackDepth - 1];
            const int size = closed.consumed + closed.trailing;
            if (pParent->isInnerDone)
                pParent->trailing += size;
            else
                pParent->consumed += size;
        }
        if (!closed.isPrimitive) {
            pThis->base.tag = closed.tag;
            pThis->base.type = closed.type;
            pThis->base.isContainer = true;
            pThis->base.length = closed.length;
            byteBuffer_reset(&pThis->base.buffer);
            if (pThis->onItemReady != nullptr)
                pThis->onItemReady(pThis);
        }
    }
}

static void onTerminator(SEmberAsyncReader *pThis)
{
    SEmberAsyncContainer *pTop = pThis->stackDepth > 0 ? &pThis->stack[pThis->stackDepth - 1] : nullptr;
    if (pTop != nullptr && !pTop->isInnerDone && pTop->length < 0)
        pTop->isInnerDone = true;
    else if (pTop != nullptr && pTop->isInnerDone && !pTop->isOuterDone && pTop->outerLength < 0)
        pTop->isOuterDone = true;
    else
        ember_throwError(EmberError_UnexpectedTerminator);
}

static void onValueReady(SEmberAsyncReader *pThis)
{
    const bool wasSkipped = pThis->isSkippingValue;
    const int outerLength = pThis->pendingOuterLength;
    const int outerConsumed = pThis->pendingOuterConsumed;
    resetItem(pThis);
    if (!wasSkipped && pThis->onItemReady != nullptr)
        pThis->onItemReady(pThis);
    if (outerLength >= 0) {
        if (outerConsumed != outerLength)
            ember_throwError(EmberError_UnexpectedEndOfContainer);
        return;
    }
    // An indefinite outer around a primitive still owes its terminator.
    SEmberAsyncContainer entry;
    memset(&entry, 0, sizeof(entry));
    entry.tag = pThis->base.tag;
    entry.type = pThis->base.type;
    entry.outerLength = -1;
    entry.headerLength = outerConsumed;
    entry.isInnerDone = true;
    entry.isPrimitive = true;
    push(pThis, &entry);
}

static void onTagComplete(SEmberAsyncReader *pThis, SBerTag tag)
{
    pThis->bytesRead = 0;
    pThis->state = EmberAsyncState_Length;
    if (!pThis->isOuterPending) {
        if (berTag_getClass(tag) == BerClass_Universal) {
            ember_throwError(EmberError_UniversalOuterTag);
            resetItem(pThis);
        } else if (!berTag_isContainer(tag)) {
            ember_throwError(EmberError_PrimitiveOuterTag);
            resetItem(pThis);
        } else {
            pThis->base.tag = tag;
        }
        return;
    }
    switch (berTag_getClass(tag)) {
    case BerClass_Universal:
        if (tag.number < 1 || tag.number > 30) {
            ember_throwError(EmberError_InvalidBerType);
            resetItem(pThis);
            return;
        }
        break;
    case BerClass_Application:
        break;
    default:
        ember_throwError(EmberError_NonUniversalInnerTag);
        resetItem(pThis);
        return;
    }
    pThis->base.type = berTag_numberAsType(tag);
    pThis->base.isContainer = berTag_isContainer(tag);
}

static void onLengthComplete(SEmberAsyncReader *pThis, int length)
{
    pThis->bytesRead = 0;
    pThis->state = EmberAsyncState_Tag;
    if (!pThis->isOuterPending) {
        if (length == 0) {
            ember_throwError(EmberError_ZeroOuterLength);
            resetItem(pThis);
            return;
        }
        pThis->isOuterPending = true;
        pThis->pendingOuterLength = length;
        pThis->pendingOuterConsumed = 0;
        return;
    }

    pThis->base.length = length;
    byteBuffer_reset(&pThis->base.buffer);
    if (pThis->base.isContainer) {
        SEmberAsyncContainer entry;
        memset(&entry, 0, sizeof(entry));
        entry.tag = pThis->base.tag;
        entry.type = pThis->base.type;
        entry.outerLength = pThis->pendingOuterLength;
        entry.headerLength = pThis->pendingOuterConsumed;
        entry.length = length;
        resetItem(pThis);
        if (push(pThis, &entry) && pThis->onNewContainer != nullptr)
            pThis->onNewContainer(pThis);
        return;
    }
    if (length < 0) {
        // A primitive cannot have the indefinite form.
        ember_throwError(EmberError_LengthOctetsOutOfBounds);
        resetItem(pThis);
        return;
    }
    if (length == 0) {
        onValueReady(pThis);
        return;
    }
    pThis->state = EmberAsyncState_Value;
    pThis->bytesExpected = length;
    if (length > EMBER_MAX_VALUE_LENGTH) {
        ember_throwError(EmberError_BufferOverrun);
        pThis->isSkippingValue = true;
    }
}

static void readTagByte(SEmberAsyncReader *pThis, unsigned char byte)
{
    if (pThis->bytesRead == 0) {
        if (byte == 0x00 && !pThis->isOuterPending) {
            pThis->state = EmberAsyncState_Terminator;
            pThis->bytesRead = 1;
            return;
        }
        pThis->bytesRead = 1;
        if ((byte & 0x1F) != 0x1F) {
            onTagComplete(pThis, berTag_make(byte & 0xE0, byte & 0x1F));
            return;
        }
        // The number follows in base-128 groups; keep the class and constructed bits meanwhile.
        pThis->bytesExpected = byte & 0xE0;
        pThis->accumulator = 0;
        return;
    }
    if (pThis->bytesRead >= 6 || pThis->accumulator > (UINT_MAX >> 7)) {
        ember_throwError(EmberError_TagOctetsOutOfBounds);
        resetItem(pThis);
        return;
    }
    pThis->accumulator = (pThis->accumulator << 7) | (byte & 0x7F);
    pThis->bytesRead++;
    if ((byte & 0x80) == 0)
        onTagComplete(pThis,
                      berTag_make(static_cast<unsigned char>(pThis->bytesExpected), pThis->accumulator));
}

static void readLengthByte(SEmberAsyncReader *pThis, unsigned char byte)
{
    if (pThis->bytesRead == 0) {
        pThis->bytesRead = 1;
        if ((byte & 0x80) == 0) {
            onLengthComplete(pThis, byte);
        } else if (byte == 0x80) {
            onLengthComplete(pThis, -1);
        } else if ((byte & 0x7F) > 4) {
            ember_throwError(EmberError_LengthOctetsOutOfBounds);
            resetItem(pThis);
        } else {
            pThis->bytesExpected = byte & 0x7F;
            pThis->accumulator = 0;
        }
        return;
    }
    pThis->accumulator = (pThis->accumulator << 8) | byte;
    pThis->bytesRead++;
    if (--pThis->bytesExpected > 0)
        return;
    if (pThis->accumulator > static_cast<unsigned int>(INT_MAX)) {
        ember_throwError(EmberError_LengthOctetsOutOfBounds);
        resetItem(pThis);
        return;
    }
    onLengthComplete(pThis, static_cast<int>(pThis->accumulator));
}

void emberAsyncReader_readByte(SEmberAsyncReader *pThis, unsigned char byte)
{
    if (pThis->stackDepth > 0) {
        SEmberAsyncContainer *pTop = &pThis->stack[pThis->stackDepth - 1];
        if (pTop->isInnerDone)
            pTop->trailing++;
        else
            pTop->consumed++;
    }
    if (pThis->isOuterPending)
        pThis->pendingOuterConsumed++;

    switch (pThis->state) {
    case EmberAsyncState_Tag:
        readTagByte(pThis, byte);
        break;
    case EmberAsyncState_Length:
        readLengthByte(pThis, byte);
        break;
    case EmberAsyncState_Value:
        if (!pThis->isSkippingValue)
            byteBuffer_add(&pThis->base.buffer, byte);
        if (--pThis->bytesExpected == 0)
            onValueReady(pThis);
        break;
    case EmberAsyncState_Terminator:
        resetItem(pThis);
        if (byte != 0x00)
            ember_throwError(EmberError_NonZeroTerminator);
        else
            onTerminator(pThis);
        break;
    default:
        ember_throwError(EmberError_StackUnderflow);
        resetItem(pThis);
        break;
    }
    closeCompleteContainers(pThis);
}

void emberAsyncReader_readBytes(SEmberAsyncReader *pThis, const unsigned char *pBytes, int count)
{
    for (int i = 0; i < count; i++)
        emberAsyncReader_readByte(pThis, pBytes[i]);
}
