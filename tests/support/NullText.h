// A null text the compiler cannot see through, for calls that must be tested with a null format.
#ifndef PASSWAY_TESTS_NULLTEXT_H
#define PASSWAY_TESTS_NULLTEXT_H

inline const char* nullText() {
    static const char* volatile none = nullptr;
    return none;
}

#endif
