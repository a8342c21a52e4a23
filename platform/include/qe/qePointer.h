// Intrusive shared pointer over qeObject reference counts.
#ifndef QE_QEPOINTER_H
#define QE_QEPOINTER_H

#include <cstddef>

namespace qe {

template <class T>
class qePointer {
public:
    qePointer(T* object = nullptr) : m_object(object) {
        if (m_object) m_object->IncrementReferences();
    }
    qePointer(const qePointer& other) : qePointer(other.m_object) {}
    template <class U>
    qePointer(const qePointer<U>& other) : qePointer(static_cast<U*>(other)) {}
    ~qePointer() { release(); }

    // Assigning the object already held does nothing; otherwise the new object
    // gains its reference before the old one loses its own, so that assigning
    // a pointer reachable only through the old object stays safe.
    qePointer& operator=(T* object) {
        if (m_object != object) {
            if (object) object->IncrementReferences();
            release();
            m_object = object;
        }
        return *this;
    }
    qePointer& operator=(const qePointer& other) { return *this = other.m_object; }

    T& operator*() const { return *m_object; }
    T* operator->() const { return m_object; }
    operator T*() const { return m_object; }
    T* get() const { return m_object; }

    bool operator==(T* object) const { return m_object == object; }
    bool operator!=(T* object) const { return m_object != object; }
    bool operator==(const qePointer& other) const { return m_object == other.m_object; }
    bool operator!=(const qePointer& other) const { return m_object != other.m_object; }
    bool operator==(std::nullptr_t) const { return m_object == nullptr; }
    bool operator!=(std::nullptr_t) const { return m_object != nullptr; }

private:
    void release() {
        if (m_object) {
            T* object = m_object;
            m_object = nullptr;
            object->DecrementReferences();
        }
    }

    T* m_object;
};

}  // namespace qe

#endif
