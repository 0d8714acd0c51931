#include "runtime/ControlSocketNatives.h"

#include "core/ground/Guard.h"
#include "core/ground/Options.h"
#include "core/jvm/JNIUtils.h"
#include "platform/Platform.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

// The sockets of the control channel belong to native code, because Java's own would settle what
// the application may still configure. Connections are blocking, and no child inherits one.
// Every wait has an end. No lock is taken and no state is kept here.

static const int BUFFER_SIZE = 65536;
// A header: the magic and the packet's type. Keep in sync with Packet.java.
static const int MAGIC_BYTES = 8;
static const int HEADER_BYTES = MAGIC_BYTES + 4;

static void throwIOException(JNIEnv* env, const char* className, const char* text) {
    if (env->ExceptionCheck()) {
        return;
    }
    jclass exception = env->FindClass(className);
    if (exception != nullptr) {
        env->ThrowNew(exception, text);
    }
}

static void throwErrno(JNIEnv* env, const char* className, const char* what, int error) {
    char text[256];
    snprintf(text, sizeof text, "%s: %s", what, strerror(error));
    throwIOException(env, className, text);
}

static const char* const IO_EXCEPTION = "java/io/IOException";
static const char* const BIND_EXCEPTION = "java/net/BindException";

static long nowMs() {
    return Platform::monotonicTimeNs() / 1000000;
}

// Waits until the descriptor is ready for the events, closed or failed. False when the time is up.
static bool waitFor(int descriptor, short events, int timeoutMs) {
    long deadline = nowMs() + timeoutMs;
    while (true) {
        long left = deadline - nowMs();
        pollfd state = {descriptor, events, 0};
        int result = poll(&state, 1, left > 0 ? static_cast<int>(left) : 0);
        if (result > 0) {
            return true;
        }
        if (result == 0) {
            return false;
        }
        if (errno != EINTR) {
            return true;
        }
    }
}

// The addresses to listen on, by preference; null with an exception pending on failure.
static addrinfo* resolve(JNIEnv* env, const char* host, int family, bool passive, int port) {
    char service[16];
    snprintf(service, sizeof service, "%d", port);
    addrinfo hints;
    memset(&hints, 0, sizeof hints);
    hints.ai_family = family;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICSERV | (passive ? AI_PASSIVE : 0);
    addrinfo* result = nullptr;
    int error = getaddrinfo(host, service, &hints, &result);
    if (error != 0) {
        char text[512];
        snprintf(text, sizeof text, "%s: %s", host == nullptr ? "any address" : host,
                 gai_strerror(error));
        throwIOException(env, BIND_EXCEPTION, text);
        return nullptr;
    }
    return result;
}

// Sets errno and gives -1 on failure.
static int listenOn(const addrinfo* address, int backlog) {
    int descriptor = socket(address->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (descriptor < 0) {
        return -1;
    }
    int on = 1;
    int off = 0;
    setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (address->ai_family == AF_INET6) {
        // one socket for clients of both kinds
        setsockopt(descriptor, IPPROTO_IPV6, IPV6_V6ONLY, &off, sizeof off);
    }
    if (bind(descriptor, address->ai_addr, address->ai_addrlen) == 0 &&
        listen(descriptor, backlog) == 0) {
        return descriptor;
    }
    int error = errno;
    close(descriptor);
    errno = error;
    return -1;
}

// The first address of the family that can be bound; other families only if there is none of it.
static int listenOnFirst(const addrinfo* addresses, int family, int backlog) {
    int error = EADDRNOTAVAIL;
    bool seen = false;
    for (int round = 0; round < 2 && !seen; round++) {
        for (const addrinfo* address = addresses; address != nullptr; address = address->ai_next) {
            if ((address->ai_family == family) != (round == 0)) {
                continue;
            }
            int descriptor = listenOn(address, backlog);
            if (descriptor >= 0) {
                return descriptor;
            }
            // a kernel without IPv6 still resolves to it
            seen = seen || errno != EAFNOSUPPORT;
            error = errno == EAFNOSUPPORT ? error : errno;
        }
    }
    errno = error;
    return -1;
}

static int getPort(int descriptor) {
    sockaddr_storage address;
    socklen_t length = sizeof address;
    if (getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        return 0;
    }
    if (address.ss_family == AF_INET6) {
        return ntohs(reinterpret_cast<sockaddr_in6*>(&address)->sin6_port);
    }
    return ntohs(reinterpret_cast<sockaddr_in*>(&address)->sin_port);
}

// Without a host and with onlyLocal: loopback. Without either: every address, by both protocols
// where the machine has them. A host and loopback prefer IPv4, as Java does.
static jlong listenImpl(JNIEnv* env, const char* host, bool onlyLocal, bool ipv4Only, int port,
                        int backlog) {
    bool any = host == nullptr && !onlyLocal;
    addrinfo* addresses = resolve(env, host, ipv4Only ? AF_INET : AF_UNSPEC, any, port);
    if (addresses == nullptr) {
        return 0;
    }
    int descriptor = listenOnFirst(addresses, any && !ipv4Only ? AF_INET6 : AF_INET, backlog);
    int error = errno;
    freeaddrinfo(addresses);
    if (descriptor < 0) {
        char text[512];
        snprintf(text, sizeof text, "%s%s%s", strerror(error), host == nullptr ? "" : ": ",
                 host == nullptr ? "" : host);
        throwIOException(env, BIND_EXCEPTION, text);
        return 0;
    }
    return static_cast<jlong>(getPort(descriptor)) << 32 | descriptor;
}

// "[::1]" stands for "::1", as ahead of a port.
static ZString withoutBrackets(const ZString& host) {
    return host.startsWith("[") && host.endsWith("]") ? host.substring(1, host.getLength() - 1)
                                                      : host;
}

static void setOptions(int descriptor, int sendTimeoutMs) {
    timeval timeout;
    timeout.tv_sec = sendTimeoutMs / 1000;
    timeout.tv_usec = sendTimeoutMs % 1000 * 1000;
    int on = 1;
    setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
    setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

// Gives -1 if nobody waits.
static jint acceptImpl(JNIEnv* env, int server, int sendTimeoutMs) {
    while (true) {
        int descriptor = accept4(server, nullptr, nullptr, SOCK_CLOEXEC);
        if (descriptor >= 0) {
            setOptions(descriptor, sendTimeoutMs);
            return descriptor;
        }
        if (errno == EAGAIN) {
            return -1;
        }
        if (errno != EINTR && errno != ECONNABORTED) {
            throwErrno(env, IO_EXCEPTION, "accept", errno);
            return -1;
        }
    }
}

// 1 if a header that begins with the magic, or what cannot become one, can be read without a wait;
// 0 if it may come yet; -1 if nothing came and nothing will.
static jint lookForHeaderImpl(int descriptor, unsigned long magic) {
    unsigned char bytes[HEADER_BYTES];
    ssize_t count;
    do {
        count = recv(descriptor, bytes, sizeof bytes, MSG_PEEK | MSG_DONTWAIT);
    } while (count < 0 && errno == EINTR);
    if (count <= 0) {
        return count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK) ? 0 : -1;
    }
    for (int i = 0; i < count && i < MAGIC_BYTES; i++) {
        if (bytes[i] != static_cast<unsigned char>(magic >> (8 * (MAGIC_BYTES - 1 - i)))) {
            return 1;
        }
    }
    return count == HEADER_BYTES ? 1 : 0;
}

// Why a client is not served; null if it is.
static const char* findRefusal(int descriptor) {
    static std::atomic<bool> ourUnknownUserTold{false};
    if (!ourOptions->onlyUser) {
        return nullptr;
    }
    const long user = Platform::peerUser(descriptor);
    if (user == 0 || user == static_cast<long>(geteuid())) {
        return nullptr;
    }
    if (user >= 0) {
        return "The agent serves only the user that runs the application, and root";
    }
    if (!ourUnknownUserTold.exchange(true)) {
        Logger::message("A client was refused: the system does not tell which user it belongs to; "
                        "it may be on another machine");
    }
    return "The agent serves only the user that runs the application, and root; which user this "
           "connection belongs to cannot be found out";
}

// Gives -1 at the end of the stream, as Java does.
static jint readImpl(JNIEnv* env, int descriptor, jbyteArray bytes, jint offset, jint length,
                     int timeoutMs) {
    char buffer[BUFFER_SIZE];
    ssize_t count;
    do {
        if (!waitFor(descriptor, POLLIN, timeoutMs)) {
            throwIOException(env, IO_EXCEPTION, "the client sends nothing");
            return -1;
        }
        count = recv(descriptor, buffer, length < BUFFER_SIZE ? length : BUFFER_SIZE, MSG_DONTWAIT);
    } while (count < 0 && (errno == EINTR || errno == EAGAIN));
    if (count < 0) {
        throwErrno(env, IO_EXCEPTION, "receive", errno);
        return -1;
    }
    if (count == 0) {
        return -1;
    }
    env->SetByteArrayRegion(bytes, offset, static_cast<jint>(count),
                            reinterpret_cast<const jbyte*>(buffer));
    return static_cast<jint>(count);
}

// False with an exception pending.
static bool sendAll(JNIEnv* env, int descriptor, const char* bytes, int length, int stallMs) {
    int sent = 0;
    while (sent < length) {
        if (!waitFor(descriptor, POLLOUT, stallMs)) {
            throwIOException(env, IO_EXCEPTION, "the client reads nothing");
            return false;
        }
        ssize_t count = send(descriptor, bytes + sent, length - sent, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count >= 0) {
            sent += static_cast<int>(count);
        } else if (errno != EINTR && errno != EAGAIN) {
            throwErrno(env, IO_EXCEPTION, "send", errno);
            return false;
        }
    }
    return true;
}

static void writeImpl(JNIEnv* env, int descriptor, jbyteArray bytes, jint offset, jint length,
                      int stallMs) {
    char buffer[BUFFER_SIZE];
    while (length > 0) {
        jint piece = length < BUFFER_SIZE ? length : BUFFER_SIZE;
        env->GetByteArrayRegion(bytes, offset, piece, reinterpret_cast<jbyte*>(buffer));
        if (env->ExceptionCheck() || !sendAll(env, descriptor, buffer, piece, stallMs)) {
            return;
        }
        offset += piece;
        length -= piece;
    }
}

static void finishImpl(int descriptor, int timeoutMs) {
    char buffer[4096];
    shutdown(descriptor, SHUT_WR);
    long deadline = nowMs() + timeoutMs;
    for (long left = timeoutMs; left >= 0; left = deadline - nowMs()) {
        if (!waitFor(descriptor, POLLIN, static_cast<int>(left)) ||
            recv(descriptor, buffer, sizeof buffer, MSG_DONTWAIT) <= 0) {
            return;
        }
    }
}

static jlong JNICALL controlSocketListen(JNIEnv* env, jclass, jstring host, jboolean onlyLocal,
                                         jboolean ipv4Only, jint port, jint backlog) {
    jlong result = 0;
    runGuarded(VDK_HERE, [&] {
        const ZString name = withoutBrackets(toZString(env, host));
        result = listenImpl(env, host == nullptr ? nullptr : name.c_str(), onlyLocal, ipv4Only,
                            port, backlog);
    });
    return result;
}

static jint JNICALL controlSocketAccept(JNIEnv* env, jclass, jint server, jint sendTimeoutMs) {
    jint result = -1;
    runGuarded(VDK_HERE, [&] { result = acceptImpl(env, server, sendTimeoutMs); });
    return result;
}

static jint JNICALL controlSocketLookForHeader(JNIEnv*, jclass, jint descriptor, jlong magic) {
    jint result = -1;
    runGuarded(VDK_HERE,
               [&] { result = lookForHeaderImpl(descriptor, static_cast<unsigned long>(magic)); });
    return result;
}

static jstring JNICALL controlSocketGetRefusal(JNIEnv* env, jclass, jint descriptor) {
    // Who cannot be looked up is not served.
    const char* refusal = "The agent cannot find out whose connection this is";
    runGuarded(VDK_HERE, [&] { refusal = findRefusal(descriptor); });
    return refusal == nullptr ? nullptr : env->NewStringUTF(refusal);
}

static jboolean JNICALL controlSocketServesOnlyItsUser(JNIEnv*, jclass) {
    return ourOptions->onlyUser ? JNI_TRUE : JNI_FALSE;
}

static jint JNICALL controlSocketRead(JNIEnv* env, jclass, jint descriptor, jbyteArray bytes,
                                      jint offset, jint length, jint timeoutMs) {
    jint result = -1;
    runGuarded(VDK_HERE,
               [&] { result = readImpl(env, descriptor, bytes, offset, length, timeoutMs); });
    return result;
}

static void JNICALL controlSocketWrite(JNIEnv* env, jclass, jint descriptor, jbyteArray bytes,
                                       jint offset, jint length, jint stallMs) {
    runGuarded(VDK_HERE, [&] { writeImpl(env, descriptor, bytes, offset, length, stallMs); });
}

static void JNICALL controlSocketFinish(JNIEnv*, jclass, jint descriptor, jint timeoutMs) {
    runGuarded(VDK_HERE, [&] { finishImpl(descriptor, timeoutMs); });
}

static void JNICALL controlSocketClose(JNIEnv*, jclass, jint descriptor) {
    runGuarded(VDK_HERE, [&] { close(descriptor); });
}

bool registerControlSocketNatives(JNIEnv* env, jclass controlSocket) {
    struct Row {
        const char* name;
        const char* signature;
        void* function;
    };
    static const Row rows[] = {
        {"listen", "(Ljava/lang/String;ZZII)J", reinterpret_cast<void*>(controlSocketListen)},
        {"accept", "(II)I", reinterpret_cast<void*>(controlSocketAccept)},
        {"lookForHeader", "(IJ)I", reinterpret_cast<void*>(controlSocketLookForHeader)},
        {"getRefusal", "(I)Ljava/lang/String;", reinterpret_cast<void*>(controlSocketGetRefusal)},
        {"servesOnlyItsUser", "()Z", reinterpret_cast<void*>(controlSocketServesOnlyItsUser)},
        {"read", "(I[BIII)I", reinterpret_cast<void*>(controlSocketRead)},
        {"write", "(I[BIII)V", reinterpret_cast<void*>(controlSocketWrite)},
        {"finish", "(II)V", reinterpret_cast<void*>(controlSocketFinish)},
        {"close", "(I)V", reinterpret_cast<void*>(controlSocketClose)},
    };
    const int count = sizeof rows / sizeof *rows;
    JNINativeMethod methods[count];
    for (int i = 0; i < count; i++) {
        methods[i].name = const_cast<char*>(rows[i].name);
        methods[i].signature = const_cast<char*>(rows[i].signature);
        methods[i].fnPtr = rows[i].function;
    }
    return env->RegisterNatives(controlSocket, methods, count) == JNI_OK;
}
