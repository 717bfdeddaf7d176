#include "snapshot/BlockPipeline.h"

#include <algorithm>
#include <system_error>
#include <utility>

namespace mxservice::snapshot {
namespace {

// Below, starting threads costs more than they save.
constexpr std::size_t kBytesWorthThreads = std::size_t{4} << 20U;
constexpr unsigned kMostThreads = 8;  // one reader cuts, and inflates: more would wait for it
// One that is decoded, one that waits, one that is done: enough for nobody to stand idle, and a bound on the memory.
constexpr std::size_t kBlocksAThread = 3;

}  // namespace

BlockPipeline::BlockPipeline(unsigned threads, std::function<void(DecodedBlock)> take)
    : wanted_(threads), take_(std::move(take)) {}

BlockPipeline::~BlockPipeline() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        stopped_ = true;
    }
    // A block under way is finished; those that wait are never begun.
    waiting_.notify_all();
    for (std::thread& thread : threads_) {
        thread.join();
    }
}

void BlockPipeline::put(Block block) {
    bytes_ += block.text.text().size();
    startThreads();
    auto job = std::make_unique<Job>();
    job->block = std::move(block);
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        jobs_.push_back(std::move(job));
    }
    waiting_.notify_one();
    // Without threads this decodes the block at once, on the caller's.
    takeUntil(kBlocksAThread * threads_.size());
}

void BlockPipeline::startThreads() {
    // A number that was asked for is taken at once, so that it does not depend on the size what is tried.
    if (started_ || wanted_ == 1 || (wanted_ == 0 && bytes_ < kBytesWorthThreads)) {
        return;
    }
    started_ = true;
    const unsigned all = wanted_ != 0 ? wanted_ : std::min(std::thread::hardware_concurrency(), kMostThreads);
    try {
        while (threads_.size() + 1 < all) {
            threads_.emplace_back([this] { work(); });
        }
    } catch (const std::system_error&) {
        // Where the system gives no more threads, those that are there do it, if need be the caller's alone.
        return;
    }
}

void BlockPipeline::takeUntil(std::size_t left) {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!jobs_.empty() && (jobs_.front()->done || jobs_.size() > left)) {
        if (jobs_.front()->done) {
            const std::unique_ptr<Job> job = std::move(jobs_.front());
            jobs_.pop_front();
            // What it is given to may take its time, and the threads need the lock.
            --begun_;
            lock.unlock();
            if (job->failure) {
                std::rethrow_exception(job->failure);
            }
            take_(std::move(job->decoded));
            lock.lock();
        } else if (begun_ < jobs_.size()) {
            // Rather than wait: the front block is with somebody, and this thread would stand idle.
            decodeNext(lock);
        } else {
            done_.wait(lock, [this] { return jobs_.front()->done; });
        }
    }
}

void BlockPipeline::decodeNext(std::unique_lock<std::mutex>& lock) {
    Job& job = *jobs_[begun_++];
    lock.unlock();
    try {
        job.decoded = decode(std::move(job.block));
    } catch (...) {
        job.failure = std::current_exception();  // thrown to the caller when it is the block's turn
    }
    lock.lock();
    job.done = true;
}

void BlockPipeline::work() {
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        waiting_.wait(lock, [this] { return stopped_ || begun_ < jobs_.size(); });
        if (stopped_) {
            return;
        }
        decodeNext(lock);
        // The caller's thread alone waits there, for the front block; of another one it finds out in passing.
        done_.notify_one();
    }
}

}  // namespace mxservice::snapshot
