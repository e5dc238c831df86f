// Progress callbacks for long operations (downloads, bulk loads).
#pragma once

// Receives progress; returning true from a callback asks the operation to abort.
class ProgressEvent {
  public:
    virtual ~ProgressEvent() = default;
    // Percent done, 0 to 100.
    virtual bool onPercentDone(int percent) {
        (void)percent;
        return false;
    }
    // Called periodically while nothing measurable happens.
    virtual bool onAbortCheck() { return false; }
};

// Passed to loaders that can report progress; null means nobody listens.
using ProgressMonitor = ProgressEvent;
