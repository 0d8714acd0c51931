#include "offline/DominatorComputer.h"

#include "core/ground/Options.h"
#include "offline/MemAllocator.h"

// Source of the algorithm: T. Lengauer and R. E. Tarjan, "A fast algorithm for finding dominators
// in a flowgraph", ACM TOPLAS 1(1), 1979, with the balanced LINK of its appendix.

namespace {

// How many nodes ahead of the walk each step of a look-up is fetched: the node's own rows, its list
// of referrers, the referrers' rows, what those rows point at. By then the step before has arrived.
constexpr int AHEAD_NODE = 32;
constexpr int AHEAD_LIST = 24;
constexpr int AHEAD_REFERRERS = 16;
constexpr int AHEAD_ANCESTORS = 8;
// Referrers fetched ahead for a node: few have more.
constexpr int AHEAD_MOST = 4;
constexpr int PROGRESS_NODES = 1 << 18;
// A set with more slots than this for each member is replaced when it is emptied: clearing it costs
// its capacity, which only the insertions that made it grow may pay for.
constexpr int EMPTY_SLOTS_PER_MEMBER = 16;
constexpr int SMALL_SET = 64;

void debugMessage(bool debug, const char* text) {
    if (debug) {
        Logger::message(text);
    }
}

ZSet<int>* setOf(unsigned long word) {
    return reinterpret_cast<ZSet<int>*>(word);
}

} // namespace

DominatorComputer::DominatorComputer(ObjectStorage& analysed, int rootCount, const int* bits,
                                     AnalysisProgress* told)
    : storage(analysed), table("da", (static_cast<long>(analysed.getObjectCount()) + 1) * SLOTS),
      labels(table.buffer + LABEL), parents(table.buffer + PARENT),
      ancestors(table.buffer + ANCESTOR), children(table.buffer + CHILD),
      vertices(table.buffer + VERTEX), semis(table.buffer + SEMI), nodeSizes(table.buffer + SIZE),
      rootSet(rootCount < 1 ? 1 : rootCount), nullNode(analysed.getObjectCount()),
      depthFirstCount(0), reachableBits(reinterpret_cast<const unsigned*>(bits)), progress(told),
      bucketTable(analysed.getBucketTable()), markBits(analysed.getMarkBits()), bucketsInUse(false),
      debug(Options::isDebug("dominators")) {}

// The delegated constructor makes everything that the destructor frees: it runs also when the work
// below ends with an exception.
DominatorComputer::DominatorComputer(ObjectStorage& analysed, const int* roots, int rootCount,
                                     const int* bits, AnalysisProgress* told)
    : DominatorComputer(analysed, rootCount, bits, told) {
    debugMessage(debug, "dcc: 0");
    Logger::assertNotNULL(bucketTable, VDK_HERE);
    Logger::assertNotNULL(markBits, VDK_HERE);
    collectRoots(roots, rootCount);
    ancestors[at(nullNode)] = nullNode;
    labels[at(nullNode)] = nullNode;
    debugMessage(debug, "dcc: 1");
    depthFirstSearchDom(markBits, storage.getReferences());
    debugMessage(debug, "dcc: 2");
    storage.getReferences().unmapRefTable("AFTER depthFirstSearchDom");
    memset(markBits, 0, static_cast<size_t>(storage.getMarkWords()) * sizeof(unsigned));
    Logger::assertNotNULL(storage.getBackwardReferences(), VDK_HERE);
    computeSemidominators();
    deleteSets(true);
    bucketsInUse = false;
    // All buckets are empty: their memory goes before that of the dominators comes.
    storage.deleteBucketTable();
    bucketTable = nullptr;
    finishDominators();
    storeDominators();
    debugMessage(debug, "dcc: 3");
}

DominatorComputer::~DominatorComputer() {
    if (bucketsInUse) {
        deleteSets(false);
    }
}

void DominatorComputer::collectRoots(const int* roots, int rootCount) {
    for (int i = 0; i < rootCount; i++) {
        Logger::assertTrue(roots[i] > 0 && roots[i] < nullNode, VDK_HERE);
        rootSet.add(roots[i]);
    }
}

void DominatorComputer::visit(int node, int parent) {
    const int number = ++depthFirstCount;
    int* fields = table.buffer + at(node);
    fields[SEMI] = number;
    fields[LABEL] = node;
    fields[PARENT] = parent;
    fields[ANCESTOR] = nullNode;
    fields[CHILD] = nullNode;
    fields[SIZE] = 1;
    vertices[at(number)] = node;
    if ((number & (PROGRESS_NODES - 1)) == 0) {
        reportProgress(progress, "depth-first search", number, nullNode);
    }
}

void DominatorComputer::depthFirstSearchDom(unsigned* visited, const RefTable& refTable) {
    Search::excludeAllBut(reachableBits, nullNode, visited);
    visit(0, 0);
    Search search(refTable, nullNode, visited, *this);
    for (int slot = 0; slot < rootSet.getCapacity(); slot++) {
        if (rootSet.isFull(slot)) {
            search.searchFrom(rootSet.keyAt(slot), 0);
        }
    }
    for (int slot = 0; slot < rootSet.getCapacity(); slot++) {
        const int root = rootSet.isFull(slot) ? rootSet.keyAt(slot) : 0;
        if (root != 0 && semis[at(root)] != 0) {
            parents[at(root)] = ~parents[at(root)];
        }
    }
}

void DominatorComputer::computeSemidominators() {
    bucketsInUse = true;
    const RefTable& backward = *storage.getBackwardReferences();
    Logger::assertTrue(backward.getRowCount() >= nullNode, VDK_HERE);
    // Number 1 is the virtual root, which has nothing above it.
    for (int number = depthFirstCount; number > 1; number--) {
        if ((number & (PROGRESS_NODES - 1)) == 0) {
            reportProgress(progress, "dominators", depthFirstCount - number, depthFirstCount);
        }
        prefetchNodes(number, backward);
        processNode(number, backward);
    }
}

void DominatorComputer::processNode(int number, const RefTable& backward) {
    const int node = vertices[at(number)];
    int parent = parents[at(node)];
    if (parent < 0) {
        // A root: the virtual root, number 1, refers to it.
        parent = ~parent;
        semis[at(node)] = 1;
    } else {
        semis[at(node)] = smallestOfReferrers(node, number, backward);
    }
    const int owner = vertices[at(semis[at(node)])];
    link(parent, node);
    if (owner == parent) {
        // The bucket of the parent is emptied right here, while the node is alone on its path.
        parents[at(node)] = parent;
    } else {
        addToBucket(owner, node);
    }
    emptyBucket(parent);
}

int DominatorComputer::smallestOfReferrers(int node, int semi, const RefTable& backward) {
    BigIntArrayIterator64 list = backward.initReferenceIterator(node);
    int last = 0;
    while (list.hasNext() && semi > 1) {
        const int referrer = list.next();
        // Not visited: beyond the reach of the roots, or left out by the caller.
        if (referrer == last || semis[at(referrer)] == 0) {
            continue;
        }
        last = referrer;
        const int candidate = semis[at(eval(referrer))];
        semi = candidate < semi ? candidate : semi;
    }
    return semi;
}

void DominatorComputer::prefetchNodes(int number, const RefTable& backward) const {
    if (number <= AHEAD_NODE + 1) {
        return;
    }
    const BigIntArray64& store = backward.getReferences();
    const auto nodeAhead = [&](int distance) { return vertices[at(number - distance)]; };
    const auto listOf = [&](int node) {
        const int start = backward.placeOf(node).start;
        return store.pagePointers()[start >> BigIntArray64::PAGE_BITS] +
               (start & BigIntArray64::PAGE_MASK);
    };
    const auto listLength = [&](int node) {
        const auto [start, count] = backward.placeOf(node);
        const int inPage = BigIntArray64::PAGE_SIZE - (start & BigIntArray64::PAGE_MASK);
        const int most = AHEAD_MOST < inPage ? AHEAD_MOST : inPage;
        return count < most ? count : most;
    };
    int node = nodeAhead(AHEAD_NODE);
    backward.prefetchPlace(node);
    __builtin_prefetch(table.buffer + at(node), 1);
    node = nodeAhead(AHEAD_LIST);
    if (listLength(node) > 0) {
        __builtin_prefetch(listOf(node));
    }
    node = nodeAhead(AHEAD_REFERRERS);
    const int parent = parents[at(node)];
    __builtin_prefetch(bucketTable + (parent < 0 ? ~parent : parent));
    for (int i = listLength(node) - 1; i >= 0; i--) {
        __builtin_prefetch(table.buffer + at(listOf(node)[i]), 1);
    }
    node = nodeAhead(AHEAD_ANCESTORS);
    for (int i = listLength(node) - 1; i >= 0; i--) {
        const size_t referrer = at(listOf(node)[i]);
        __builtin_prefetch(table.buffer + at(ancestors[referrer]), 1);
        __builtin_prefetch(table.buffer + at(labels[referrer]));
    }
}

void DominatorComputer::addToBucket(int owner, int node) {
    unsigned long& word = bucketTable[owner];
    if (Search::isSet(markBits, owner)) {
        setOf(word)->add(node);
        return;
    }
    if (word == 0) {
        word = static_cast<unsigned long>(node);
        return;
    }
    ZSet<int>* members = new ZSet<int>(2);
    try {
        members->add(static_cast<int>(word));
        members->add(node);
    } catch (...) {
        delete members;
        throw;
    }
    word = reinterpret_cast<unsigned long>(members);
    Search::setBit(markBits, owner);
}

void DominatorComputer::emptyBucket(int owner) {
    unsigned long& word = bucketTable[owner];
    if (!Search::isSet(markBits, owner)) {
        if (word != 0) {
            decideDominator(owner, static_cast<int>(word));
            word = 0;
        }
        return;
    }
    statistics.clears++;
    ZSet<int>* members = setOf(word);
    if (members->getSize() == 0) {
        return;
    }
    for (int slot = 0; slot < members->getCapacity(); slot++) {
        if (members->isFull(slot)) {
            decideDominator(owner, members->keyAt(slot));
        }
    }
    const int capacity = members->getCapacity();
    if (capacity > SMALL_SET && capacity / EMPTY_SLOTS_PER_MEMBER > members->getSize()) {
        ZSet<int>* smaller = new ZSet<int>(2);
        delete members;
        word = reinterpret_cast<unsigned long>(smaller);
    } else {
        members->clear();
    }
}

// A dominator that is that of another node is noted as the complement of that node.
void DominatorComputer::decideDominator(int owner, int node) {
    const int smallest = eval(node);
    parents[at(node)] = semis[at(smallest)] >= semis[at(node)] ? owner : ~smallest;
}

void DominatorComputer::deleteSets(bool report) {
    for (int word = 0; word < storage.getMarkWords(); word++) {
        for (; markBits[word] != 0; markBits[word] &= markBits[word] - 1) {
            const int node = word * 32 + __builtin_ctz(markBits[word]);
            if (node > nullNode) {
                continue;
            }
            ZSet<int>* members = setOf(bucketTable[node]);
            const long bytes = members->getCapacity() * 5L + 48;
            if (debug && report) {
                ZString line("dcc: set: capacity=");
                line.appendLong(members->getCapacity());
                line.append(" size=");
                line.appendLong(bytes);
                Logger::message(line);
            }
            statistics.sets++;
            statistics.bucketMem += bytes;
            delete members;
            bucketTable[node] = 0;
        }
    }
    if (!report) {
        return;
    }
    ZString line("dcc: stats: objects:");
    line.appendLong(nullNode);
    line.append(" sets:");
    line.appendLong(statistics.sets);
    line.append(" clears:");
    line.appendLong(statistics.clears);
    line.append(" bucketMem:");
    line.appendLong(statistics.bucketMem);
    Logger::message(line);
}

// In the order of numbers, so that the node a dominator was noted by has its own already.
void DominatorComputer::finishDominators() {
    for (int number = 2; number <= depthFirstCount; number++) {
        if (number + AHEAD_LIST <= depthFirstCount) {
            __builtin_prefetch(parents + at(vertices[at(number + AHEAD_LIST)]), 1);
        }
        int& dominator = parents[at(vertices[at(number)])];
        if (dominator < 0) {
            dominator = parents[at(~dominator)];
        }
    }
}

// Moves the dominators to the storage. The table's memory goes page by page as theirs comes.
void DominatorComputer::storeDominators() {
    BigIntArray64* dominators = storage.arrayOfKind(READ_DOMINATORS);
    for (int from = 0; from < nullNode; from += BigIntArray64::PAGE_SIZE) {
        const int left = nullNode - from;
        const int count = left < BigIntArray64::PAGE_SIZE ? left : BigIntArray64::PAGE_SIZE;
        int* page = dominators->getBuffer(from, true);
        for (int i = 0; i < count; i++) {
            page[i] = parents[at(from + i)];
            if (semis[at(from + i)] != 0) {
                Search::setBit(markBits, from + i);
            }
        }
        MemAllocator::giveBack(table.buffer + at(from), at(count) * sizeof(int));
    }
}

int DominatorComputer::eval(int node) {
    if (ancestors[at(node)] == nullNode) {
        return labels[at(node)];
    }
    compress(node);
    const int above = labels[at(ancestors[at(node)])];
    const int own = labels[at(node)];
    return semis[at(above)] < semis[at(own)] ? above : own;
}

// Balanced linking keeps the path short: its length is bounded by the logarithm of the node count.
// The path is collected first; a longer one goes on in a further call.
void DominatorComputer::compress(int node) {
    constexpr int PATH = 64;
    int path[PATH];
    int length = 0;
    int top = node;
    while (ancestors[at(ancestors[at(top)])] != nullNode) {
        if (length == PATH) {
            compress(top);
            break;
        }
        path[length++] = top;
        top = ancestors[at(top)];
    }
    while (length > 0) {
        int* fields = table.buffer + at(path[--length]);
        const int* above = table.buffer + at(fields[ANCESTOR]);
        if (semis[at(above[LABEL])] < semis[at(fields[LABEL])]) {
            fields[LABEL] = above[LABEL];
        }
        fields[ANCESTOR] = above[ANCESTOR];
    }
}

void DominatorComputer::link(int parent, int node) {
    const int label = labels[at(node)];
    int s = node;
    for (;;) {
        const int c = children[at(s)];
        if (semis[at(label)] >= semis[at(labels[at(c)])]) {
            break;
        }
        const int d = children[at(c)];
        if (nodeSizes[at(s)] + nodeSizes[at(d)] < 2 * nodeSizes[at(c)]) {
            nodeSizes[at(c)] = nodeSizes[at(s)];
            ancestors[at(s)] = c;
            s = c;
        } else {
            ancestors[at(c)] = s;
            children[at(s)] = d;
        }
    }
    labels[at(s)] = label;
    nodeSizes[at(parent)] += nodeSizes[at(node)];
    if (nodeSizes[at(parent)] < 2 * nodeSizes[at(node)]) {
        const int swapped = children[at(parent)];
        children[at(parent)] = s;
        s = swapped;
    }
    while (s != nullNode) {
        ancestors[at(s)] = parent;
        s = children[at(s)];
    }
}
