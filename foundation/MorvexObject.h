#ifndef XMLTREE_FOUNDATION_MORVEXOBJECT_H
#define XMLTREE_FOUNDATION_MORVEXOBJECT_H

// Common base of the heap objects that the tree owns by pointer (nodes and
// their shared tree record). It exists so that such objects are always
// released through a virtual destructor.
class MorvexObject {
public:
    // Holds no state; copying copies nothing.
    MorvexObject() = default;
    MorvexObject(const MorvexObject&) = default;
    MorvexObject& operator=(const MorvexObject&) = default;
    virtual ~MorvexObject() {}
};

#endif
