#ifndef EMBER_GLOW_H
#define EMBER_GLOW_H

#include <cstdint>

// The Glow element records that the provider keeps and exchanges. Strings and blocks inside them
// are owned by the record and come from allocMemory (ember_copyString for strings); the _free
// functions give them back through freeMemory and zero the record.

// Which fields of an element are set, or are to be written.
typedef enum EGlowFieldFlags
{
    GlowFieldFlag_Identifier = 0x1,
    GlowFieldFlag_Description = 0x2,
    GlowFieldFlag_Value = 0x4,
    GlowFieldFlag_Minimum = 0x8,
    GlowFieldFlag_Maximum = 0x10,
    GlowFieldFlag_Access = 0x20,
    GlowFieldFlag_Format = 0x40,
    GlowFieldFlag_Factor = 0x80,
    GlowFieldFlag_IsOnline = 0x100,
    GlowFieldFlag_Step = 0x200,
    GlowFieldFlag_Default = 0x400, // never written
    GlowFieldFlag_Type = 0x800,
    GlowFieldFlag_StreamIdentifier = 0x1000,
    GlowFieldFlag_Formula = 0x2000,
    GlowFieldFlag_Enumeration = 0x4000,
    GlowFieldFlag_StreamDescriptor = 0x10000,
    GlowFieldFlag_IsRoot = 0x20000,
    GlowFieldFlag_All = -1,
} EGlowFieldFlags;

// Parameter types, which are also the types of values.
typedef enum EGlowParameterType
{
    GlowParameterType_None = 0,
    GlowParameterType_Integer = 1,
    GlowParameterType_Real = 2,
    GlowParameterType_String = 3,
    GlowParameterType_Boolean = 4,
    GlowParameterType_Trigger = 5,
    GlowParameterType_Enum = 6,
    GlowParameterType_Octets = 7,
} EGlowParameterType;

typedef enum EGlowAccess
{
    GlowAccess_None = 0,
    GlowAccess_Read = 1,
    GlowAccess_Write = 2,
    GlowAccess_ReadWrite = 3,
} EGlowAccess;

typedef struct SGlowOctets
{
    unsigned char *pOctets;
    int length;
} SGlowOctets;

typedef struct SGlowValue
{
    EGlowParameterType type;
    union {
        int64_t integer;
        double real;
        char *pString;
        bool boolean;
        SGlowOctets octets;
    };
} SGlowValue;

typedef struct SGlowMinMax
{
    EGlowParameterType type; // integer or real
    union {
        int64_t integer;
        double real;
    };
} SGlowMinMax;

typedef struct SGlowStreamDescription
{
    int format;
    int offset;
} SGlowStreamDescription;

typedef struct SGlowParameter
{
    char *pIdentifier;
    char *pDescription;
    SGlowValue value;
    SGlowMinMax minimum;
    SGlowMinMax maximum;
    EGlowAccess access;
    char *pFormat;
    char *pEnumeration; // entries separated by line feeds
    int factor;
    bool isOnline;
    char *pFormula;
    int step;
    EGlowParameterType type;
    int streamIdentifier;
    SGlowStreamDescription streamDescriptor;
} SGlowParameter;

typedef struct SGlowNode
{
    char *pIdentifier;
    char *pDescription;
    bool isRoot;
    bool isOnline;
} SGlowNode;

typedef struct SGlowTupleItemDescription
{
    EGlowParameterType type;
    char *pName;
} SGlowTupleItemDescription;

typedef struct SGlowFunction
{
    char *pIdentifier;
    char *pDescription;
    SGlowTupleItemDescription *pArguments;
    int argumentsLength;
    SGlowTupleItemDescription *pResult;
    int resultLength;
} SGlowFunction;

typedef struct SGlowInvocation
{
    int invocationId;
    SGlowValue *pArguments;
    int argumentsLength;
} SGlowInvocation;

typedef struct SGlowCommand
{
    int number;       // EGlowCommandType
    int dirFieldMask; // GetDirectory: the fields asked for, -1 all
    SGlowInvocation invocation;
} SGlowCommand;

typedef struct SGlowStreamEntry
{
    int streamIdentifier;
    SGlowValue streamValue;
} SGlowStreamEntry;

void glowValue_init(SGlowValue *pThis);
// Deep copy: a string or octets value gets its own block. pThis is overwritten, not freed.
void glowValue_copyFrom(SGlowValue *pThis, const SGlowValue *pSource);
void glowValue_free(SGlowValue *pThis);

void glowParameter_init(SGlowParameter *pThis);
void glowParameter_free(SGlowParameter *pThis);

void glowNode_init(SGlowNode *pThis);
void glowNode_free(SGlowNode *pThis);

void glowTupleItemDescription_free(SGlowTupleItemDescription *pThis);

void glowFunction_init(SGlowFunction *pThis);
// Allocates argumentsLength (resultLength) zeroed descriptions for the caller to fill in.
void glowFunction_setArguments(SGlowFunction *pThis, int argumentsLength);
void glowFunction_setResult(SGlowFunction *pThis, int resultLength);
void glowFunction_free(SGlowFunction *pThis);

void glowInvocation_init(SGlowInvocation *pThis);
// Appends a deep copy of the value.
void glowInvocation_addArgument(SGlowInvocation *pThis, const SGlowValue *pValue);
void glowInvocation_free(SGlowInvocation *pThis);

void glowCommand_init(SGlowCommand *pThis);
void glowCommand_free(SGlowCommand *pThis);

void glowStreamEntry_init(SGlowStreamEntry *pThis);
void glowStreamEntry_free(SGlowStreamEntry *pThis);

#endif
