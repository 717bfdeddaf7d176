#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "snapshot/BlockDecoder.h"

namespace mxservice::snapshot {

/// Blocks go in, decoded ones come out in the same order. Threads of its own decode, and so does the caller's while it
/// would have to wait. A bounded number of blocks is under way. For one thread's use.
///
/// A block belongs to who decodes it, from taking it under the lock to marking it done under the lock.
class BlockPipeline {
public:
    /// `threads`: the caller's among them; 0: as many as pay. `take` gets the decoded blocks on the caller's thread.
    BlockPipeline(unsigned threads, std::function<void(DecodedBlock)> take);
    /// Lets go of what is under way.
    ~BlockPipeline();
    BlockPipeline(const BlockPipeline&) = delete;
    BlockPipeline& operator=(const BlockPipeline&) = delete;

    /// Throws what decoding or taking an earlier block threw.
    void put(Block block);
    /// Waits until everything was taken. Throws the same.
    void finish() { takeUntil(0); }

private:
    struct Job {
        Block block;
        DecodedBlock decoded;
        std::exception_ptr failure;
        bool done = false;
    };

    void takeUntil(std::size_t left);
    void decodeNext(std::unique_lock<std::mutex>& lock);
    void startThreads();
    void work();

    const unsigned wanted_;
    const std::function<void(DecodedBlock)> take_;
    std::size_t bytes_ = 0;  // that went in
    bool started_ = false;   // threads, as many as there will be
    std::vector<std::thread> threads_;

    std::mutex mutex_;  // guards what follows
    std::condition_variable waiting_;
    std::condition_variable done_;
    std::deque<std::unique_ptr<Job>> jobs_;  // in order; those before `begun_` are with somebody, or done
    std::size_t begun_ = 0;
    bool stopped_ = false;
};

}  // namespace mxservice::snapshot
