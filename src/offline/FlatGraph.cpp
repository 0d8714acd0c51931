#include "offline/FlatGraph.h"

FlatGraph::FlatGraph(int count)
    : nodeCount(count), sources("fg-s", 2 * (count + 1)), targets("fg-t", 2 * (count + 1)),
      sourceStore("fg-ss"), targetStore("fg-ts"), numbers("fg-n", count + 1),
      vertices("fg-v", count + 2), parents("fg-p", count + 2), semis("fg-e", count + 2),
      labels("fg-l", count + 2), ancestors("fg-a", count + 2), stack("fg-st"), visited(0) {}

void FlatGraph::allot(BigIntArray64Presized& lists) {
    int next = 0;
    for (int i = 0; i < lists.size; i += 2) {
        lists.buffer[i] = next;
        next += lists.buffer[i + 1];
    }
}

void FlatGraph::rewind(BigIntArray64Presized& lists) {
    for (int i = 0; i < lists.size; i += 2) {
        lists.buffer[i] -= lists.buffer[i + 1];
    }
}

void FlatGraph::allotEdges() {
    allot(sources);
    allot(targets);
}

// Entries of the stack: a node, and the next of its targets.
void FlatGraph::search() {
    const auto enter = [this](int node, int parent) {
        numbers.buffer[node] = ++visited;
        vertices.buffer[visited] = node;
        parents.buffer[visited] = parent;
        semis.buffer[visited] = visited;
        labels.buffer[visited] = visited;
    };
    enter(0, 0);
    stack.set(0, 0);
    stack.set(1, 0);
    int depth = 2;
    while (depth > 0) {
        const int node = stack.get(depth - 2);
        const int next = stack.get(depth - 1);
        if (next == targets.buffer[2 * node + 1]) {
            depth -= 2;
            continue;
        }
        stack.set(depth - 1, next + 1);
        const int target = targetStore.get(targets.buffer[2 * node] + next);
        if (numbers.buffer[target] == 0) {
            enter(target, numbers.buffer[node]);
            stack.set(depth, target);
            stack.set(depth + 1, 0);
            depth += 2;
        }
    }
}

// The number with the smallest semidominator on the path of linked nodes above and with `number`.
// The path is put on the stack and compressed from its top down.
int FlatGraph::eval(int number) {
    if (ancestors.buffer[number] == 0) {
        return number;
    }
    int length = 0;
    int top = number;
    while (ancestors.buffer[ancestors.buffer[top]] != 0) {
        stack.set(length++, top);
        top = ancestors.buffer[top];
    }
    while (length > 0) {
        const int below = stack.get(--length);
        const int above = ancestors.buffer[below];
        if (semis.buffer[labels.buffer[above]] < semis.buffer[labels.buffer[below]]) {
            labels.buffer[below] = labels.buffer[above];
        }
        ancestors.buffer[below] = ancestors.buffer[above];
    }
    return labels.buffer[number];
}

int FlatGraph::findDominated(AnalysisProgress* progress) {
    rewind(sources);
    rewind(targets);
    search();
    for (int node = 1; node <= nodeCount; node++) {
        if (numbers.buffer[node] == 0) {
            return node;
        }
    }
    for (int number = visited; number > 1; number--) {
        if ((number & 0x3ffff) == 0) {
            reportProgress(progress, "verifying knots", visited - number, visited);
        }
        const int node = vertices.buffer[number];
        const int start = sources.buffer[2 * node];
        for (int i = 0; i < sources.buffer[2 * node + 1]; i++) {
            const int source = numbers.buffer[sourceStore.get(start + i)];
            const int semi = semis.buffer[eval(source)];
            if (semi < semis.buffer[number]) {
                semis.buffer[number] = semi;
            }
        }
        ancestors.buffer[number] = parents.buffer[number];
    }
    // All dominators found so far are the root, so a climb from a parent below it ends there.
    for (int number = 2; number <= visited; number++) {
        if (parents.buffer[number] != 1 && semis.buffer[number] != 1 &&
            semis.buffer[number] >= parents.buffer[number]) {
            return vertices.buffer[number];
        }
    }
    return 0;
}
