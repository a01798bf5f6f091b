#ifndef EMBER_SAMPLETREE_H
#define EMBER_SAMPLETREE_H

#include "ember/glow.h"

#include <cstdint>

// The fixed Ember+ tree that describes one instance: nodes, parameters and functions, each
// allocated through the Ember+ memory hooks and owned by its parent. An element's number is its
// index in its parent's children; the value id of a parameter or function is its path packed one
// byte per level from the top: (top << 24) | (group << 16) | (element << 8).

#define SAMPLE_NODE_MAX_CHILDREN 255

enum ESampleNodeType
{
    SampleNodeType_Node = 0,
    SampleNodeType_Parameter = 1,
    SampleNodeType_Function = 3,
};

typedef struct SSampleNode
{
    int32_t type;   // ESampleNodeType
    int32_t fields; // EGlowFieldFlags: what is set and written when the element is sent
    union {
        SGlowNode node;
        SGlowParameter parameter;
        SGlowFunction function;
    } element;
    int32_t id; // value id; -1 for a node
    int32_t childCount;
    SSampleNode *children[SAMPLE_NODE_MAX_CHILDREN];
} SSampleNode;

// Zeroes node and appends it to parent (if any). Returns the parent's new child count, the count
// unchanged when the parent is full (the node then stays unattached), and 0 without a parent.
int sampleNode_init(SSampleNode *pNode, SSampleNode *pParent);
// Frees the subtree below node and the node's own Glow contents, then zeroes it. The node's own
// memory belongs to its parent (or to whoever holds it by value).
void sampleNode_free(SSampleNode *pNode);

// New elements under parent, with copies of identifier and description (a null description is
// left out of the fields). Parameters and functions carry the given value id, nodes -1.
SSampleNode *createNode(SSampleNode *pParent, const char *pIdentifier, const char *pDescription);
SSampleNode *createParameter(SSampleNode *pParent, const char *pIdentifier, const char *pDescription, int id);
SSampleNode *createFunction(SSampleNode *pParent, const char *pIdentifier, const char *pDescription, int id);

// Walks path from root as far as it leads. *pLength is the number of path elements on entry and
// the number actually walked on return; the element reached is returned (root for an empty path).
SSampleNode *findNode(SSampleNode *pRoot, const int *pPath, int *pLength);

// The element that carries value id (its low byte ignored), or null when there is none.
SSampleNode *sampleTree_findById(SSampleNode *pRoot, int id, int *pPath, int *pLength);

// Stores a value reported by the instance in a parameter: integers, booleans and enumerations take
// value; strings the zero-terminated text in pData; octets min(value, block length) bytes of pData.
// Returns false (and changes nothing) for a parameter type that cannot take a reported value.
bool sampleNode_storeValue(SSampleNode *pParameter, int value, const char *pData);

// Builds the instance tree below the (empty) top node.
void buildTree(SSampleNode *pRoot);

#endif
