#include "sampletree.h"

#include "ember/emberhooks.h"

#include <cstring>

int sampleNode_init(SSampleNode *pNode, SSampleNode *pParent)
{
    memset(pNode, 0, sizeof(*pNode));
    if (pParent == nullptr)
        return 0;
    if (pParent->childCount >= SAMPLE_NODE_MAX_CHILDREN)
        return pParent->childCount;
    pParent->children[pParent->childCount] = pNode;
    return ++pParent->childCount;
}

void sampleNode_free(SSampleNode *pNode)
{
    for (int i = 0; i < pNode->childCount; i++) {
        SSampleNode *pChild = pNode->children[i];
        if (pChild == nullptr)
            continue;
        sampleNode_free(pChild);
        freeMemory(pChild);
    }
    switch (pNode->type) {
    case SampleNodeType_Parameter:
        glowParameter_free(&pNode->element.parameter);
        break;
    case SampleNodeType_Function:
        glowFunction_free(&pNode->element.function);
        break;
    default:
        glowNode_free(&pNode->element.node);
        break;
    }
    memset(pNode, 0, sizeof(*pNode));
}

// Identifier and description are the first two members of all three element records.
static SSampleNode *createElement(SSampleNode *pParent, int type, const char *pIdentifier,
                                  const char *pDescription, int id)
{
    SSampleNode *pNode = static_cast<SSampleNode *>(allocMemory(sizeof(SSampleNode)));
    if (pNode == nullptr)
        return nullptr;
    sampleNode_init(pNode, pParent);
    pNode->type = type;
    pNode->id = id;
    pNode->element.node.pIdentifier = ember_copyString(pIdentifier);
    pNode->element.node.pDescription = ember_copyString(pDescription);
    pNode->fields = GlowFieldFlag_Identifier;
    if (pDescription != nullptr)
        pNode->fields |= GlowFieldFlag_Description;
    return pNode;
}

SSampleNode *createNode(SSampleNode *pParent, const char *pIdentifier, const char *pDescription)
{
    return createElement(pParent, SampleNodeType_Node, pIdentifier, pDescription, -1);
}

SSampleNode *createParameter(SSampleNode *pParent, const char *pIdentifier, const char *pDescription, int id)
{
    return createElement(pParent, SampleNodeType_Parameter, pIdentifier, pDescription, id);
}

SSampleNode *createFunction(SSampleNode *pParent, const char *pIdentifier, const char *pDescription, int id)
{
    return createElement(pParent, SampleNodeType_Function, pIdentifier, pDescription, id);
}

SSampleNode *findNode(SSampleNode *pRoot, const int *pPath, int *pLength)
{
    SSampleNode *pNode = pRoot;
    int walked = 0;
    // Paths come from consumers: a number outside the children (negative ones included) ends the walk.
    while (walked < *pLength) {
        const int number = pPath[walked];
        if (number < 0 || number >= pNode->childCount || pNode->children[number] == nullptr)
            break;
        pNode = pNode->children[number];
        walked++;
    }
    *pLength = walked;
    return pNode;
}

SSampleNode *sampleTree_findById(SSampleNode *pRoot, int id, int *pPath, int *pLength)
{
    const uint32_t bits = static_cast<uint32_t>(id);
    pPath[0] = static_cast<int>(bits >> 24);
    pPath[1] = static_cast<int>((bits >> 16) & 0xFF);
    pPath[2] = static_cast<int>((bits >> 8) & 0xFF);
    *pLength = 3;
    SSampleNode *pNode = findNode(pRoot, pPath, pLength);
    if (pNode->id != static_cast<int>(bits & 0xFFFFFF00u))
        return nullptr;
    return pNode;
}

// A consumer's write may have left a value of another type than the parameter's; the instance's
// report puts the parameter's own type back before storing.
static void takeParameterType(SGlowParameter *pParameter)
{
    if (pParameter->value.type == pParameter->type)
        return;
    glowValue_free(&pParameter->value);
    pParameter->value.type = pParameter->type;
}

static void storeString(SGlowValue *pValue, const char *pText)
{
    const size_t length = strlen(pText);
    if (pValue->pString != nullptr && length <= strlen(pValue->pString)) {
        memcpy(pValue->pString, pText, length + 1);
        return;
    }
    freeMemory(pValue->pString);
    pValue->pString = ember_copyString(pText);
}

bool sampleNode_storeValue(SSampleNode *pNode, int value, const char *pData)
{
    if (pNode->type != SampleNodeType_Parameter)
        return false;
    SGlowParameter *pParameter = &pNode->element.parameter;
    switch (pParameter->type) {
    case GlowParameterType_Integer:
    case GlowParameterType_Enum:
        takeParameterType(pParameter);
        pParameter->value.integer = value;
        return true;
    case GlowParameterType_Boolean:
        takeParameterType(pParameter);
        pParameter->value.boolean = value != 0;
        return true;
    case GlowParameterType_String:
        takeParameterType(pParameter);
        storeString(&pParameter->value, pData != nullptr ? pData : "");
        return true;
    case GlowParameterType_Octets: {
        takeParameterType(pParameter);
        SGlowOctets *pOctets = &pParameter->value.octets;
        const int count = value < pOctets->length ? value : pOctets->length;
        if (pData != nullptr && count > 0)
            memcpy(pOctets->pOctets, pData, static_cast<size_t>(count));
        return true;
    }
    default:
        return false;
    }
}

// ---- the instance tree -----------------------------------------------------------------------

static const char s_statusEnumeration[] = "Not Ready\nStand By\nRejected (na)\nCalling\nConnected (na)\n"
                                          "Synchronized\nAudio OK (na)\nIncoming Call Waiting\nUDP Warning\n"
                                          "UDP Error";
static const char s_sipStatusEnumeration[] =
    "Offline\nRegistering\nCalling\nIncoming call\nCall in progress\n"
    "Registered";
static const char s_recordStateEnumeration[] = "Stop\nPause\nRecording";
static const char s_playStateEnumeration[] = "Stop\nPlaying";
static const char s_routingEnumeration[] = "Monitoring\nOn Air\nUnused";

static SSampleNode *addParameter(SSampleNode *pParent, const char *pIdentifier, const char *pDescription,
                                 int id, EGlowAccess access, EGlowParameterType type)
{
    SSampleNode *pNode = createParameter(pParent, pIdentifier, pDescription, id);
    if (pNode == nullptr)
        return nullptr;
    SGlowParameter *pParameter = &pNode->element.parameter;
    pParameter->access = access;
    pParameter->type = type;
    pParameter->value.type = type;
    pNode->fields |= GlowFieldFlag_Value | GlowFieldFlag_Access;
    return pNode;
}

static void addString(SSampleNode *pParent, const char *pIdentifier, const char *pDescription, int id,
                      EGlowAccess access, const SGlowValue *pInitial)
{
    SSampleNode *pNode =
        addParameter(pParent, pIdentifier, pDescription, id, access, GlowParameterType_String);
    if (pNode != nullptr)
        glowValue_copyFrom(&pNode->element.parameter.value, pInitial);
}

static SSampleNode *addInteger(SSampleNode *pParent, const char *pIdentifier, const char *pDescription,
                               int id, EGlowAccess access)
{
    return addParameter(pParent, pIdentifier, pDescription, id, access, GlowParameterType_Integer);
}

// Enumerated parameters are integers that carry the names of their values.
static void addEnumerated(SSampleNode *pParent, const char *pIdentifier, const char *pDescription, int id,
                          EGlowAccess access, const char *pEnumeration)
{
    SSampleNode *pNode = addInteger(pParent, pIdentifier, pDescription, id, access);
    if (pNode == nullptr)
        return;
    pNode->element.parameter.pEnumeration = ember_copyString(pEnumeration);
    pNode->fields |= GlowFieldFlag_Enumeration;
}

static void addOctets(SSampleNode *pParent, const char *pIdentifier, const char *pDescription, int id,
                      int length)
{
    SSampleNode *pNode =
        addParameter(pParent, pIdentifier, pDescription, id, GlowAccess_Read, GlowParameterType_Octets);
    if (pNode == nullptr)
        return;
    SGlowOctets *pOctets = &pNode->element.parameter.value.octets;
    pOctets->pOctets = static_cast<unsigned char *>(allocMemory(static_cast<size_t>(length)));
    if (pOctets->pOctets == nullptr)
        return;
    memset(pOctets->pOctets, 0, static_cast<size_t>(length));
    pOctets->length = length;
}

static void addFunction(SSampleNode *pParent, const char *pIdentifier, const char *pDescription, int id,
                        const char *pArgumentName = nullptr,
                        EGlowParameterType argumentType = GlowParameterType_None)
{
    SSampleNode *pNode = createFunction(pParent, pIdentifier, pDescription, id);
    if (pNode == nullptr || pArgumentName == nullptr)
        return;
    SGlowFunction *pFunction = &pNode->element.function;
    glowFunction_setArguments(pFunction, 1);
    if (pFunction->argumentsLength == 1) {
        pFunction->pArguments[0].type = argumentType;
        pFunction->pArguments[0].pName = ember_copyString(pArgumentName);
    }
    pNode->fields = GlowFieldFlag_All;
}

static SGlowValue stringValue(const char *pText)
{
    SGlowValue value;
    glowValue_init(&value);
    value.type = GlowParameterType_String;
    value.pString = const_cast<char *>(pText); // only ever copied from
    return value;
}

void buildTree(SSampleNode *pTop)
{
    const SGlowValue na = stringValue("NA");
    const SGlowValue dots = stringValue("..");
    const SGlowValue product = stringValue("Vexa Studio");
    const SGlowValue company = stringValue("Calder Wick");
    const EGlowAccess R = GlowAccess_Read;
    const EGlowAccess RW = GlowAccess_ReadWrite;

    SSampleNode *pRoot = createNode(pTop, "root", "root");
    if (pRoot == nullptr)
        return;

    SSampleNode *pGroup = createNode(pRoot, "identity", "Unit features & software versions");
    if (pGroup != nullptr) {
        addString(pGroup, "product", "Product Name", 0x000000, R, &product);
        addString(pGroup, "company", "Manufacturer", 0x000100, R, &company);
        addString(pGroup, "serial", "Serial Number", 0x000200, R, &na);
        addString(pGroup, "version", "Software Version", 0x000300, R, &dots);
        addString(pGroup, "features", "Unit features", 0x000400, R, &na);
        addString(pGroup, "name", "Instance name", 0x000500, RW, &dots);
        SSampleNode *pTag = addInteger(pGroup, "group", "group tag number", 0x000600, RW);
        if (pTag != nullptr) {
            SGlowParameter *pParameter = &pTag->element.parameter;
            pParameter->value.integer = 1;
            pParameter->minimum.type = GlowParameterType_Integer;
            pParameter->minimum.integer = 0;
            pParameter->maximum.type = GlowParameterType_Integer;
            pParameter->maximum.integer = 12;
            pTag->fields |= GlowFieldFlag_Minimum | GlowFieldFlag_Maximum;
        }
    }

    pGroup = createNode(pRoot, "Commands", "Commands For VX");
    if (pGroup != nullptr) {
        addFunction(pGroup, "Disconnect", "Disconnect", 0x010000);
        addFunction(pGroup, "Accept", "Accept incoming call", 0x010100);
        addFunction(pGroup, "Connect", "Connect / Call", 0x010200, "ExtCon", GlowParameterType_String);
        addFunction(pGroup, "Register", "SIP:Register, RTP:Await Connection", 0x010300);
        addFunction(pGroup, "WarningAcknowledge",
                    "WarningAcknowledgement of Warning Dialog, false=Reject, true=Accept", 0x010400, "Result",
                    GlowParameterType_Integer);
        addFunction(pGroup, "Record", "Start/Stop recording, false=Stop, true=Start", 0x010500, "Start",
                    GlowParameterType_Boolean);
        addFunction(pGroup, "Play", "Start/Stop file playing, false=Stop, true=Start", 0x010600, "Start",
                    GlowParameterType_Boolean);
        addFunction(pGroup, "Restart", "Restart Vexa Studio", 0x010700);
    }

    pGroup = createNode(pRoot, "Connection Info", "Info about current connection");
    if (pGroup != nullptr) {
        addEnumerated(pGroup, "Status", "Connection status", 0x020000, R, s_statusEnumeration);
        addString(pGroup, "Destination", "Destination", 0x020100, R, &dots);
        addString(pGroup, "Incoming format", "Format of incoming stream", 0x020200, R, &dots);
        addString(pGroup, "Outgoing format", "Format of outgoing stream", 0x020300, R, &dots);
        addString(pGroup, "Station", "Name of the station chosen", 0x020400, RW, &dots);
        addInteger(pGroup, "Jitter buffer", "Nr of milliseconds of the static jitter buffer", 0x020500, RW);
        addInteger(pGroup, "Dynamic jitter buffer", "Nr of milliseconds of the dynamic jitter buffer",
                   0x020600, RW);
        addInteger(pGroup, "Live jitter buffer", "Current jitter buffer used (static+ evt dynamic)", 0x020700,
                   R);
        addOctets(pGroup, "Live Vu values",
                  "for simple display[mdVuI, pVuI, mdVuO, pVuO, pJitI, pJitO] = 0..60 overload = 80 ",
                  0x020800, 6);
        addString(pGroup, "WarningMessage",
                  "Information that has to be acknowledged, string list sperated with ::", 0x020900, R,
                  &dots);
        addString(pGroup, "Connection Time", "Connection time counter", 0x020A00, R, &dots);
        addInteger(pGroup, "Dropped packets", "info", 0x020B00, R);
        addInteger(pGroup, "Sequence errors", "info", 0x020C00, R);
        addInteger(pGroup, "Buffer underrun", "info", 0x020D00, R);
        addInteger(pGroup, "Buffer status", "info", 0x020E00, R);
        addInteger(pGroup, "Peak jitter IN", "info", 0x020F00, R);
        addInteger(pGroup, "Peak jitter OUT", "info", 0x021000, R);
        addOctets(pGroup, "Mic Vu", "[ channels valid, l,r,.. = 0..60  = -60 .. 0 dB, overload = 80 ",
                  0x021100, 9);
        addOctets(pGroup, "Net Vu", "[ channels valid, l,r,.. = 0..60 = -60 .. 0 dB", 0x021200, 9);
    }

    pGroup = createNode(pRoot, "SIP and STUN Info", "Info about the SIP and STUN registration");
    if (pGroup != nullptr) {
        addEnumerated(pGroup, "SIP Status", "SIP status", 0x030000, R, s_sipStatusEnumeration);
        addString(pGroup, "SIP URI", "Own SIP URI", 0x030100, R, &dots);
        addString(pGroup, "SIP Response", "Status String", 0x030200, R, &dots);
        addString(pGroup, "External IP", "External IP Address", 0x030300, R, &na);
    }

    pGroup = createNode(pRoot, "Audio IO", "Info about the Audio inputs and outputs");
    if (pGroup != nullptr) {
        addString(pGroup, "Input", "Name of input", 0x040000, R, &dots);
        addString(pGroup, "Output", "Name of output", 0x040100, R, &dots);
        addString(pGroup, "Driver", "Type of audio driver used", 0x040200, R, &dots);
    }

    pGroup = createNode(pRoot, "Recording", "Info about recording");
    if (pGroup != nullptr) {
        addEnumerated(pGroup, "State", "Info about recording state", 0x050000, R, s_recordStateEnumeration);
        addString(pGroup, "File name", "File name of recording", 0x050100, R, &dots);
        addString(pGroup, "Time", "Recording time", 0x050200, R, &dots);
    }

    pGroup = createNode(pRoot, "Play", "Info about file playing");
    if (pGroup != nullptr) {
        addEnumerated(pGroup, "Play State", "Info about file playing state", 0x060000, R,
                      s_playStateEnumeration);
        addString(pGroup, "Played File", "File name playing", 0x060100, R, &dots);
        addString(pGroup, "Play Time", "Playing time", 0x060200, R, &dots);
    }

    pGroup =
        createNode(pRoot, "Remote", "Remote parameters send with the stream to or from a connected Vexa");
    if (pGroup != nullptr) {
        addEnumerated(pGroup, "TAVRO routing", "State and Set", 0x070000, RW, s_routingEnumeration);
        addString(pGroup, "Station routing", "Selected station unique id", 0x070100, R, &dots);
    }
}
