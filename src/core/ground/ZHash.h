#pragma once

// Hash codes and equality of everything that is a key of a ZMap or ZSet: one pair a key type.

struct _jmethodID;
class ThreadInfo;

// Key of a row of the exception table: four fields, hashed in the order a, b, c, d.
struct ExceptionKey {
    int a;
    int b;
    int c;
    int d;
};

// Key of a row of the monitor table: hashed in the order a, d, b, c, unlike ExceptionKey.
struct MonitorKey {
    int a;
    int b;
    int c;
    int d;
};

// Three string indices that name a method: method name, parameters, class name.
struct IntTriple {
    int a;
    int b;
    int c;
};

inline int zmap_hashCode(int key) {
    return key;
}
inline int zmap_hashCode(long key) {
    return static_cast<int>(static_cast<unsigned long>(key) >> 32 ^
                            static_cast<unsigned long>(key));
}
inline int zmap_hashCode(_jmethodID* key) {
    return zmap_hashCode(reinterpret_cast<long>(key));
}
inline int zmap_hashCode(ThreadInfo* key) {
    return zmap_hashCode(reinterpret_cast<long>(key));
}
// h = 31h + c over the bytes, sign-extended; 0 for null or empty.
inline int zmap_hashCode(const char* key) {
    unsigned hash = 0;
    if (key != nullptr) {
        for (; *key != 0; key++) {
            hash =
                hash * 31 + static_cast<unsigned>(static_cast<int>(static_cast<signed char>(*key)));
        }
    }
    return static_cast<int>(hash);
}
namespace zhash {
// ((a x 29 + b) x 29 + c) x 29 + d in 32-bit arithmetic.
inline int mixFour(int a, int b, int c, int d) {
    const unsigned two = static_cast<unsigned>(a) * 29 + static_cast<unsigned>(b);
    return static_cast<int>((two * 29 + static_cast<unsigned>(c)) * 29 + static_cast<unsigned>(d));
}
} // namespace zhash
inline int zmap_hashCode(const ExceptionKey& key) {
    return zhash::mixFour(key.a, key.b, key.c, key.d);
}
inline int zmap_hashCode(const MonitorKey& key) {
    return zhash::mixFour(key.a, key.d, key.b, key.c);
}
inline int zmap_hashCode(const IntTriple& key) {
    return static_cast<int>(static_cast<unsigned>(key.a) + static_cast<unsigned>(key.b) +
                            static_cast<unsigned>(key.c));
}

inline bool zmap_equal(int left, int right) {
    return left == right;
}
inline bool zmap_equal(long left, long right) {
    return left == right;
}
inline bool zmap_equal(_jmethodID* left, _jmethodID* right) {
    return left == right;
}
inline bool zmap_equal(ThreadInfo* left, ThreadInfo* right) {
    return left == right;
}
inline bool zmap_equal(const char* left, const char* right) {
    return left == right ||
           (left != nullptr && right != nullptr && __builtin_strcmp(left, right) == 0);
}
inline bool zmap_equal(const ExceptionKey& left, const ExceptionKey& right) {
    return left.a == right.a && left.b == right.b && left.c == right.c && left.d == right.d;
}
inline bool zmap_equal(const MonitorKey& left, const MonitorKey& right) {
    return left.a == right.a && left.b == right.b && left.c == right.c && left.d == right.d;
}
inline bool zmap_equal(const IntTriple& left, const IntTriple& right) {
    return left.a == right.a && left.b == right.b && left.c == right.c;
}
