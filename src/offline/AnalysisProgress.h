#pragma once

// Told how far a long computation has come, and asked whether to go on. Called every few hundred
// thousand steps, from the thread that started the computation.
class AnalysisProgress {
public:
    virtual ~AnalysisProgress() = default;
    // phase is a constant text; done and total are in units of that phase, total at least 1. False
    // cancels: the computation ends with AnalysisCancelled.
    virtual bool proceed(const char* phase, long done, long total) = 0;
};

// A computation ended because its AnalysisProgress said so. Results are partial.
class AnalysisCancelled {};

// Calls progress, which may be null, and throws AnalysisCancelled when it says so.
inline void reportProgress(AnalysisProgress* progress, const char* phase, long done, long total) {
    if (progress != nullptr && !progress->proceed(phase, done, total < 1 ? 1 : total)) {
        throw AnalysisCancelled();
    }
}

// Told when the search of a dominator computation is over.
class AfterSearch {
public:
    virtual ~AfterSearch() = default;
    virtual void searchEnded() = 0;
};
