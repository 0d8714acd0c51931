#pragma once

// Progress tells a waiting client how far a snapshot is, in percent from 0 to 99, by packets on the
// socket of its request. Values only ever rise from 0 on: one not above the last is not sent.
class Progress {
public:
    // 0 for no client. The descriptor stays the caller's.
    explicit Progress(int socket = 0) : socketDescriptor(socket), lastPercent(0) {}

    // Reports percent, if it is above the last value. Called for every row: the common case is one
    // comparison.
    void updateProgress(int percent) {
        if (percent > lastPercent) {
            lastPercent = percent;
            updateProgressImpl(percent);
        }
    }
    // Sends the packet in any case. Percent must be from 0 to 99.
    void updateProgressImpl(int percent);
    // The last value reported, 0 before the first.
    int getLastPercent() const { return lastPercent; }

private:
    int socketDescriptor;
    int lastPercent;
};

// The same while classes are rewritten: how many are done, of how many, and the longest time for
// which the application stood still. Nothing for no client.
void sendCallsProgress(int socket, int done, int total, long longestStopNs);
