#pragma once

namespace corvina {

// Holds the lock that belongs to an object for the life of this guard, as the platform's
// synchronized-on-object blocks do: every guard on the same object excludes the others, and a thread
// may take it again while it holds it. The object needs no member for it: locks are kept in a fixed
// table keyed by the object's address, so two objects may now and then share a lock (more exclusion,
// never less).
class Synchronized {
public:
    explicit Synchronized(const void* object);
    ~Synchronized();
    Synchronized(const Synchronized&) = delete;
    Synchronized& operator=(const Synchronized&) = delete;

private:
    void* m_lock;
};

} // namespace corvina
