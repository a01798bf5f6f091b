#ifndef EMBER_GLOWTAGS_H
#define EMBER_GLOWTAGS_H

// Tag numbers of the Glow DTD (version 2.20): the APPLICATION types of the elements and the
// CONTEXT tags of their fields. Every Glow writer and reader takes its numbers from here.

#define GLOW_TYPE(number) (0x8000u | (number))

enum EGlowType
{
    GlowType_Root = GLOW_TYPE(0),
    GlowType_Parameter = GLOW_TYPE(1),
    GlowType_Command = GLOW_TYPE(2),
    GlowType_Node = GLOW_TYPE(3),
    GlowType_ElementCollection = GLOW_TYPE(4),
    GlowType_StreamEntry = GLOW_TYPE(5),
    GlowType_StreamCollection = GLOW_TYPE(6),
    GlowType_StringIntegerPair = GLOW_TYPE(7),
    GlowType_StringIntegerCollection = GLOW_TYPE(8),
    GlowType_QualifiedParameter = GLOW_TYPE(9),
    GlowType_QualifiedNode = GLOW_TYPE(10),
    GlowType_RootElementCollection = GLOW_TYPE(11),
    GlowType_StreamDescription = GLOW_TYPE(12),
    GlowType_Matrix = GLOW_TYPE(13),
    GlowType_Target = GLOW_TYPE(14),
    GlowType_Source = GLOW_TYPE(15),
    GlowType_Connection = GLOW_TYPE(16),
    GlowType_QualifiedMatrix = GLOW_TYPE(17),
    GlowType_Label = GLOW_TYPE(18),
    GlowType_Function = GLOW_TYPE(19),
    GlowType_QualifiedFunction = GLOW_TYPE(20),
    GlowType_TupleItemDescription = GLOW_TYPE(21),
    GlowType_Invocation = GLOW_TYPE(22),
    GlowType_InvocationResult = GLOW_TYPE(23),
    GlowType_Template = GLOW_TYPE(24),
    GlowType_QualifiedTemplate = GLOW_TYPE(25),
};

// Root [APPLICATION 0] holds a RootElementCollection whose entries are [0] each; so do an
// ElementCollection, a StreamCollection and the tuples of functions and invocations.
#define GLOW_COLLECTION_ITEM_TAG 0

// Fields of Node, Parameter, Matrix, Function and their qualified forms (number or path first).
enum EGlowElementTag
{
    GlowElementTag_Number = 0, // a qualified element's path (RELATIVE-OID) has the same tag
    GlowElementTag_Contents = 1,
    GlowElementTag_Children = 2,
};

enum EGlowNodeContentsTag
{
    GlowNodeContentsTag_Identifier = 0,
    GlowNodeContentsTag_Description = 1,
    GlowNodeContentsTag_IsRoot = 2,
    GlowNodeContentsTag_IsOnline = 3,
    GlowNodeContentsTag_SchemaIdentifiers = 4,
    GlowNodeContentsTag_TemplateReference = 5,
};

enum EGlowParameterContentsTag
{
    GlowParameterContentsTag_Identifier = 0,
    GlowParameterContentsTag_Description = 1,
    GlowParameterContentsTag_Value = 2,
    GlowParameterContentsTag_Minimum = 3,
    GlowParameterContentsTag_Maximum = 4,
    GlowParameterContentsTag_Access = 5,
    GlowParameterContentsTag_Format = 6,
    GlowParameterContentsTag_Enumeration = 7,
    GlowParameterContentsTag_Factor = 8,
    GlowParameterContentsTag_IsOnline = 9,
    GlowParameterContentsTag_Formula = 10,
    GlowParameterContentsTag_Step = 11,
    GlowParameterContentsTag_Default = 12,
    GlowParameterContentsTag_Type = 13,
    GlowParameterContentsTag_StreamIdentifier = 14,
    GlowParameterContentsTag_EnumMap = 15,
    GlowParameterContentsTag_StreamDescriptor = 16,
    GlowParameterContentsTag_SchemaIdentifiers = 17,
    GlowParameterContentsTag_TemplateReference = 18,
};

enum EGlowStreamDescriptionTag
{
    GlowStreamDescriptionTag_Format = 0,
    GlowStreamDescriptionTag_Offset = 1,
};

enum EGlowFunctionContentsTag
{
    GlowFunctionContentsTag_Identifier = 0,
    GlowFunctionContentsTag_Description = 1,
    GlowFunctionContentsTag_Arguments = 2,
    GlowFunctionContentsTag_Result = 3,
    GlowFunctionContentsTag_TemplateReference = 4,
};

enum EGlowTupleItemDescriptionTag
{
    GlowTupleItemDescriptionTag_Type = 0,
    GlowTupleItemDescriptionTag_Name = 1,
};

enum EGlowCommandTag
{
    GlowCommandTag_Number = 0,
    GlowCommandTag_DirFieldMask = 1,
    GlowCommandTag_Invocation = 2,
};

enum EGlowInvocationTag
{
    GlowInvocationTag_InvocationId = 0,
    GlowInvocationTag_Arguments = 1,
};

enum EGlowInvocationResultTag
{
    GlowInvocationResultTag_InvocationId = 0,
    GlowInvocationResultTag_Success = 1,
    GlowInvocationResultTag_Result = 2,
};

enum EGlowStreamEntryTag
{
    GlowStreamEntryTag_StreamIdentifier = 0,
    GlowStreamEntryTag_StreamValue = 1,
};

// Command numbers.
enum EGlowCommandType
{
    GlowCommandType_Subscribe = 30,
    GlowCommandType_Unsubscribe = 31,
    GlowCommandType_GetDirectory = 32,
    GlowCommandType_Invoke = 33,
};

// The DTD version sent in every data package's application bytes, minor byte first.
#define GLOW_DTD_VERSION_MINOR 0x14
#define GLOW_DTD_VERSION_MAJOR 0x02

#endif
