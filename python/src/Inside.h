#pragma once

namespace binding {

/// For functions that call numpy with objects of Python's in their hands: numpy may let go of the interpreter's lock,
/// and a thread that waits for it when the interpreter ends is ended, through our frames and without the lock. While
/// one of these lives, the interpreter's end waits; once that has begun, none is made. With the interpreter's lock.
class Inside {
public:
    Inside();
    ~Inside();
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;
};

}  // namespace binding
