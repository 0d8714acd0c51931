#include "probes/FilterDefaults.h"

#define VDK_LENGTH(array) static_cast<int>(sizeof(array) / sizeof((array)[0]))

// Generated classes, then what is kept against the patterns below, then platform and containers.
const char* const ourDefaultGeneralFilters[] = {
    "$Dispatch*",
    "$Http*",
    "$Markup*",
    "$Page*",
    "$Property*",
    "$Proxy*",
    "$Request*",
    "+*TapestryFilter*",
    "+com.ibm.websphere.samples.*",
    "+org.apache.jsp.*",
    "+org.apache.maven.*",
    "+org.codehaus.groovy.runtime.DefaultGroovyMethods",
    "+org.codehaus.groovy.runtime.DefaultGroovyStaticMethods",
    "allaire.jrun*",
    "antlr.*",
    "apple.*",
    "atg.*",
    "bsh.*",
    "c8*",
    "com.acumenat.*",
    "com.adventnet.*",
    "com.apple.*",
    "com.asn1c.*",
    "com.bea.*",
    "com.beasys.*",
    "com.borland.*",
    "com.caucho.*",
    "com.certicom.*",
    "COM.cloudscape.*",
    "com.evermind.*",
    "com.ibm.*",
    "com.inprise.*",
    "com.intellij.rt.execution.*",
    "com.iplanet.*",
    "com.livesoftware*",
    "com.netscape.server.http.*",
    "COM.objectspace.*",
    "com.octetstring.*",
    "com.orionserver.*",
    "com.phaos.*",
    "com.pointbase.*",
    "COM.rsa.*",
    "com.rsa.*",
    "com.sssw.*",
    "com.sun.*",
    "com.sybase.*",
    "com.unify.*",
    "com.visigenic.*",
    "com.vandrik.probes.*",
    "com.vandrik.runtime.*",
    "compressionFilters.*",
    "filters.*",
    "gnu.*",
    "groovy.lang.*",
    "groovyjarjarasm.*",
    "java.*",
    "javax.*",
    "jrockit.*",
    "jrun.*",
    "jrunx.*",
    "junit.*",
    "listeners.*",
    "netscape.*",
    "newatlanta.servletexec.*",
    "org.apache.*",
    "org.codehaus.groovy.*",
    "org.eclipse.*",
    "org.enhydra.*",
    "org.hsql.*",
    "org.jboss.*",
    "org.jbossmq.*",
    "org.mozilla.*",
    "org.omg.CORBA.*",
    "org.omg.CosNaming.*",
    "org.w3c.*",
    "org.xml.*",
    "solid.*",
    "ssa.*",
    "sun.*",
    "sunw.*",
    "weblogic.*",
};
const int ourDefaultGeneralFilterCount = VDK_LENGTH(ourDefaultGeneralFilters);

const FilterAddition ourGeneralFilterAdditions[] = {
    {"jdk.*", "9: code of the JDK that was in sun.*, such as reflection, and proxies since 16"},
};
const int ourGeneralFilterAdditionCount = VDK_LENGTH(ourGeneralFilterAdditions);

const char ourDefaultWallTimeText[] =
    "java.io.RandomAccessFile : readBytes(byte[], int, int)\n"
    "java.io.RandomAccessFile : read()\n"
    "java.io.RandomAccessFile : write(int)\n"
    "java.io.RandomAccessFile : writeBytes(byte[], int, int)\n"
    "java.net.SocketInputStream : socketRead0(java.io.FileDescriptor, byte[], int, int, int)\n"
    "java.net.SocketOutputStream : socketWrite0(java.io.FileDescriptor, byte[], int, int)\n";

// The blocking part of a stream of java.net.Socket. Channels share the native reads below these
// methods and are not measured in wall time.
const FilterAddition ourWallTimeAdditions[] = {
    {"sun.nio.ch.NioSocketImpl : implRead(byte[], int, int)", "13: was socketRead0"},
    {"sun.nio.ch.NioSocketImpl : implRead(byte[], int, int, long)",
     "21: the same with the time limit as a parameter"},
    {"sun.nio.ch.NioSocketImpl : implWrite(byte[], int, int)", "13: was socketWrite0"},
};
const int ourWallTimeAdditionCount = VDK_LENGTH(ourWallTimeAdditions);

const WaitMethod ourWaitMethods[] = {
    {"java.lang.Object", "wait", nullptr},
    {"java.lang.Thread", "sleep", nullptr},
    {"java.lang.Thread", "yield", nullptr},
    {"java.net.PlainSocketImpl", "socketAccept", nullptr},
    {"java.net.PlainSocketImpl", "accept", nullptr},
    {"sun.nio.ch.ServerSocketChannelImpl", "accept0", nullptr},
    {"sun.misc.Unsafe", "park", nullptr},
    {"sun.nio.ch.EPollArrayWrapper", "epollWait", nullptr},
};
const int ourWaitMethodCount = VDK_LENGTH(ourWaitMethods);

// Only the innermost frame of a stack is tested, so these are the native methods that a thread is
// found in. sun.nio.ch.Net.poll is missing on purpose: it is also where a socket read with a time
// limit blocks, which counts as wall time; a thread in it has no CPU time of its own.
const WaitMethod ourWaitMethodAdditions[] = {
    {"jdk.internal.misc.Unsafe", "park", "9: LockSupport parks here, was sun.misc.Unsafe"},
    {"java.lang.ref.Reference", "waitForReferencePendingList",
     "9: the reference handler's wait, was Object.wait"},
    {"sun.nio.ch.EPoll", "wait", "11: selectors wait here, was EPollArrayWrapper.epollWait"},
    {"sun.nio.ch.KQueueArrayWrapper", "kevent0", "7: selectors wait here on FreeBSD"},
    {"sun.nio.ch.KQueue", "poll", "11: the same, was KQueueArrayWrapper.kevent0"},
    {"sun.nio.ch.Net", "accept",
     "13: sockets and channels accept here, was PlainSocketImpl and accept0"},
    {"sun.nio.ch.UnixDomainSockets", "accept0", "16: the same for sockets in the file system"},
    {"java.lang.Object", "wait0", "19: the native behind Object.wait"},
    {"java.lang.Thread", "sleep0", "19: the native behind Thread.sleep"},
    {"java.lang.Thread", "yield0", "19: the native behind Thread.yield"},
    {"java.lang.Thread", "sleepNanos0", "22: the native behind Thread.sleep"},
};
const int ourWaitMethodAdditionCount = VDK_LENGTH(ourWaitMethodAdditions);
