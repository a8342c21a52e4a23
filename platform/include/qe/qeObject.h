// Root of the framework's object model: run-time type names, cloning and
// intrusive reference counts.
#ifndef QE_QEOBJECT_H
#define QE_QEOBJECT_H

#include <atomic>

namespace qe {

// A type descriptor: one static instance per class, linked to its base's.
class qeRtti {
public:
    qeRtti(const char* name, const qeRtti* base) : m_name(name), m_base(base) {}
    qeRtti(const qeRtti&) = delete;
    qeRtti& operator=(const qeRtti&) = delete;

    const char* GetName() const { return m_name; }
    bool IsExactly(const qeRtti& type) const { return &type == this; }
    bool IsDerived(const qeRtti& type) const;

private:
    const char* m_name;
    const qeRtti* m_base;
};

// Type information and cloning, the interface that object descriptions use.
class qeRttiInterface {
public:
    virtual ~qeRttiInterface();

    virtual const qeRtti& GetType() const = 0;
    bool IsExactly(const qeRtti& type) const { return GetType().IsExactly(type); }
    bool IsDerived(const qeRtti& type) const { return GetType().IsDerived(type); }

    // Copies this object into target. A null target receives a new object of
    // the same class; a non-null target must be of a compatible class, else
    // the result is false and target is untouched. The base version knows no
    // state to copy and answers false.
    virtual bool Clone(qeRttiInterface*& target) const;

    static const qeRtti TYPE;
};

// Reference-counted object. Objects are born with no reference: whoever stores
// the first qePointer (or calls IncrementReferences) owns it, and the object
// deletes itself when the last reference is dropped.
class qeObject : public qeRttiInterface {
public:
    qeObject() = default;
    // Copies never share the count of their source.
    qeObject(const qeObject&) : qeRttiInterface(), m_references(0) {}
    qeObject& operator=(const qeObject&) { return *this; }
    ~qeObject() override;

    const qeRtti& GetType() const override { return TYPE; }

    // The count is atomic: several threads may hold pointers to one object
    // that they only read (const reads of a baked cluster run in parallel).
    void IncrementReferences() { m_references.fetch_add(1, std::memory_order_relaxed); }
    // Deletes the object when the count reaches zero.
    void DecrementReferences();
    int GetReferences() const { return m_references.load(std::memory_order_relaxed); }

    static const qeRtti TYPE;

private:
    std::atomic<int> m_references{0};
};

}  // namespace qe

#endif
