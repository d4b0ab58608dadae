#pragma once

#include <QMutex>
#include <QMutexLocker>
#include <utility>

namespace corvina {

// A property whose getter and setter are each safe against a concurrent setter of the same property.
// The lock covers one property only: nothing guards several fields together, by design.
template <typename T> class AtomicProperty {
public:
    AtomicProperty() = default;
    explicit AtomicProperty(T value) : m_value(std::move(value)) {}
    AtomicProperty(const AtomicProperty&) = delete;
    AtomicProperty& operator=(const AtomicProperty&) = delete;

    T get() const {
        QMutexLocker lock(&m_mutex);
        return m_value;
    }
    void set(T value) {
        QMutexLocker lock(&m_mutex);
        std::swap(m_value, value);
        // the old value is released after the lock, outside the critical section
    }
    // Replaces the value by `change(old value)` in one step: no setter can come in between.
    template <typename F> void update(F change) {
        QMutexLocker lock(&m_mutex);
        m_value = change(m_value);
    }

private:
    mutable QMutex m_mutex;
    T m_value{};
};

} // namespace corvina

// Declares an atomic property: `getter()`, `setter(value)` and its storage. Leaves the class in
// `private:` access, so properties go at the end of a class.
#define CORVINA_ATOMIC_PROPERTY(Type, getter, setter)                                                        \
public:                                                                                                      \
    Type getter() const {                                                                                    \
        return m_##getter.get();                                                                             \
    }                                                                                                        \
    void setter(Type value) {                                                                                \
        m_##getter.set(std::move(value));                                                                    \
    }                                                                                                        \
                                                                                                             \
private:                                                                                                     \
    ::corvina::AtomicProperty<Type> m_##getter;

// The same kind of property, guarded by `lock`, a QMutex the class shares among several such
// properties: each getter and setter is still one step of its own (nothing guards several fields
// together), and a record of many small fields does not carry a lock for each of them.
#define CORVINA_ATOMIC_PROPERTY_UNDER(lock, Type, getter, setter)                                            \
public:                                                                                                      \
    Type getter() const {                                                                                    \
        QMutexLocker locker(&(lock));                                                                        \
        return m_##getter;                                                                                   \
    }                                                                                                        \
    void setter(Type value) {                                                                                \
        QMutexLocker locker(&(lock));                                                                        \
        std::swap(m_##getter, value);                                                                        \
        /* the old value is released after the lock, with the parameter */                                   \
    }                                                                                                        \
                                                                                                             \
private:                                                                                                     \
    Type m_##getter{};
