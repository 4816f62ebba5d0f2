#include <Tests/Support/CallText.h>
#include <Tests/Support/Interposition.h>
#include <Tests/Support/Recorder.h>
#include <Tests/Support/Waiting.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <limits>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <utility>

#include <cerrno>

#include <pthread.h>
#include <sched.h>

namespace TestSupport {

std::atomic<int> livingRecorders{0};

bool& IsUnobserved() noexcept {
    thread_local bool isUnobserved = false;
    return isUnobserved;
}

namespace {

// A mutex would call the functions that are observed here.
class SpinLock {
public:
    void lock() {
        while (flag_.test_and_set(std::memory_order_acquire)) {
            ::sched_yield();
        }
    }
    void unlock() { flag_.clear(std::memory_order_release); }

private:
    std::atomic_flag flag_ = ATOMIC_FLAG_INIT;
};

std::string Known(std::string const& function) {
    if (!IsInterposed(function)) {
        throw std::invalid_argument("The recorder does not know the function '" + function + "'.");
    }
    return function;
}

std::vector<std::string> Split(std::string_view names) {
    std::istringstream stream{std::string(names)};
    std::vector<std::string> result;
    for (std::string name; stream >> name;) {
        result.push_back(Known(name));
    }
    return result;
}

long Failed(Call const& call, FailsWith failsWith, int error) {
#ifdef _IO_ERR_SEEN
    if (call.function == "fread" || call.function == "fwrite" || call.function == "fgets" ||
        call.function == "fflush") {
        call.stream->_flags |= _IO_ERR_SEEN;
    }
#endif
    switch (failsWith) {
    case FailsWith::ERROR_NUMBER:
        return error;
    case FailsWith::TIME_LEFT:
        return static_cast<long>(call.size);
    default:
        errno = error;
        return failsWith == FailsWith::MINUS_ONE ? -1 : 0;
    }
}

int ErrorOf(Call const& call, FailsWith failsWith) {
    switch (failsWith) {
    case FailsWith::MINUS_ONE:
        return call.result == -1 ? errno : 0;
    case FailsWith::NULL_POINTER:
        return call.result == 0 && (call.stream == nullptr || std::ferror(call.stream) != 0) ? errno : 0;
    case FailsWith::NO_ITEMS:
        return static_cast<unsigned long>(call.result) < call.size && std::ferror(call.stream) != 0 ? errno : 0;
    case FailsWith::ERROR_NUMBER:
        return static_cast<int>(call.result);
    default:
        return 0;
    }
}

std::string ShownResult(Call const& call) {
    if (call.error != 0) {
        return std::to_string(call.result) + ' ' + CallText::ErrorName(call.error);
    }
    // No count or offset of the tests is as large as an address.
    bool const isPointer = call.result > std::numeric_limits<int>::max();
    return isPointer ? "pointer" : std::to_string(call.result);
}

} // namespace

// Makes the call, and whatever else a rule wants, and gives the result.
using Action = std::function<long(Call&, FailsWith, std::function<long(unsigned long)> const&)>;

struct RuleState {
    bool Matches(Call const& call, bool isOneOfAll) const {
        return (function == "*" ? isOneOfAll : function == call.function) && (!hasCommand || command == call.command) &&
               (!condition || condition(call));
    }

    std::string function;
    bool hasCommand = false;
    int command = 0;
    std::function<bool(Call const&)> condition;
    unsigned int first = 1;
    unsigned int last = std::numeric_limits<unsigned int>::max();
    unsigned int leastApplications = 1;
    Action action;
    std::atomic<unsigned int> matches{0};
    std::atomic<unsigned int> applications{0};
};

struct RecorderState : std::enable_shared_from_this<RecorderState> {
    RecorderState(std::string_view names, Recorder::Threads whose) : functions(Split(names)), threads(whose) {}

    bool IsRecorded(std::string const& function) const {
        return std::find(functions.begin(), functions.end(), function) != functions.end();
    }

    // The rule that applies to the call; every rule that matches counts it. Conditions are asked outside the lock.
    std::shared_ptr<RuleState> Choose(Call const& call, bool isOneOfAll) {
        std::unique_lock lock(mutex);
        auto const candidates = rules;
        lock.unlock();
        std::shared_ptr<RuleState> chosen;
        for (auto const& rule : candidates) {
            if (rule->Matches(call, isOneOfAll)) {
                unsigned int const n = ++rule->matches;
                if (n >= rule->first && n <= rule->last) {
                    chosen = rule;
                }
            }
        }
        return chosen;
    }

    std::vector<std::string> const functions;
    Recorder::Threads const threads;
    mutable SpinLock mutex; // guards the rules, the calls and the number of clearings
    std::vector<std::shared_ptr<RuleState>> rules;
    std::vector<Call> calls;
    unsigned int clearings = 0;
    std::atomic<unsigned int> interventions{0};
    RecorderState* outer = nullptr; // the next recorder of the same thread
    unsigned int generation = 0;    // of the process, see there
    bool isStopped = false;
};

namespace {

thread_local RecorderState* innermost = nullptr;
SpinLock lockOfAllThreads;
std::shared_ptr<RecorderState> ofAllThreads;
std::atomic<bool> isOneOfAllThreads{false};
unsigned int generation = 0; // how many forks lie between the first process and this one

// A child has none of its parent's recorders. Nothing is freed here, and the lock may be one that another thread held.
void ForgetRecorders() {
    livingRecorders = 0;
    innermost = nullptr;
    isOneOfAllThreads = false;
    lockOfAllThreads.unlock();
    ++generation;
}

[[maybe_unused]] int const isForgettingInChildren = ::pthread_atfork(nullptr, nullptr, &ForgetRecorders);

} // namespace

Observation::Observation() : previous_(std::exchange(IsUnobserved(), true)), errno_(errno) {
    if (innermost != nullptr) {
        state_ = innermost->shared_from_this();
    } else if (isOneOfAllThreads) {
        std::lock_guard const lock(lockOfAllThreads);
        state_ = ofAllThreads;
    }
}

Observation::~Observation() {
    state_.reset();
    IsUnobserved() = previous_;
    errno = errno_;
}

long Observation::Pass(Call call, FailsWith failsWith, std::function<long(unsigned long limit)> const& makeCall) {
    bool const isRecorded = state_->IsRecorded(call.function);
    std::size_t index = 0;
    unsigned int clearings = 0;
    if (isRecorded) {
        std::lock_guard const lock(state_->mutex);
        index = state_->calls.size();
        clearings = state_->clearings;
        state_->calls.push_back(call);
    }
    auto const rule = state_->Choose(call, isRecorded && failsWith != FailsWith::NEVER);
    if (rule != nullptr) {
        ++rule->applications;
        ++state_->interventions;
    }

    errno = errno_;
    call.result = rule == nullptr ? makeCall(UNLIMITED) : rule->action(call, failsWith, makeCall);
    errno_ = errno;
    call.error = ErrorOf(call, failsWith);

    if (isRecorded) {
        std::lock_guard const lock(state_->mutex);
        if (clearings == state_->clearings) {
            state_->calls[index].result = call.result;
            state_->calls[index].error = call.error;
        }
    }
    return call.result;
}

Recorder::Recorder(std::string_view functions, Threads threads) {
    Unobserved const unobserved;
    state_ = std::make_shared<RecorderState>(functions, threads);
    state_->generation = generation;
    if (threads == Threads::CALLING) {
        state_->outer = std::exchange(innermost, state_.get());
    } else {
        std::lock_guard const lock(lockOfAllThreads);
        if (isOneOfAllThreads) {
            throw std::logic_error("There is a recorder of all threads already.");
        }
        ofAllThreads = state_;
        isOneOfAllThreads = true;
    }
    ++livingRecorders;
}

Recorder::~Recorder() {
    Stop();
    Unobserved const unobserved;
    for (auto const& rule : state_->rules) {
        if (rule->applications < rule->leastApplications) {
            ADD_FAILURE() << "A rule for '" << rule->function << "' applied to " << rule->applications
                          << " calls, not to " << rule->leastApplications << ".";
        }
    }
}

Recorder::Rule Recorder::On(std::string_view function) {
    return Rule(state_, function);
}

void Recorder::Stop() {
    Unobserved const unobserved;
    if (std::exchange(state_->isStopped, true) || state_->generation != generation) {
        return;
    }
    if (state_->threads == Threads::CALLING) {
        RecorderState** link = &innermost;
        while (*link != state_.get()) {
            link = &(*link)->outer;
        }
        *link = state_->outer;
    } else {
        std::lock_guard const lock(lockOfAllThreads);
        isOneOfAllThreads = false;
        ofAllThreads.reset();
    }
    --livingRecorders;
}

std::string Recorder::Names() const {
    Unobserved const unobserved;
    std::string names;
    for (Call const& call : All()) {
        names += (names.empty() ? "" : " ") + call.function;
    }
    return names;
}

std::vector<std::string> Recorder::Calls(unsigned int show) const {
    Unobserved const unobserved;
    std::vector<std::string> texts;
    for (Call const& call : All()) {
        bool const isDescriptorShown = (show & DESCRIPTORS) != 0 && call.hasDescriptor;
        std::ostringstream text;
        text << call.function << '(' << (isDescriptorShown ? std::to_string(call.fd) : "")
             << (isDescriptorShown && !call.details.empty() ? ", " : "") << call.details << ')';
        if ((show & RESULTS) != 0) {
            text << " = " << ShownResult(call);
        }
        texts.push_back(text.str());
    }
    return texts;
}

std::vector<Call> Recorder::All() const {
    Unobserved const unobserved;
    std::lock_guard const lock(state_->mutex);
    return state_->calls;
}

Call Recorder::Find(std::string_view function, unsigned int n) const {
    Unobserved const unobserved;
    unsigned int count = 0;
    for (Call& call : All()) {
        if (call.function == function && ++count == n) {
            return std::move(call);
        }
    }
    ADD_FAILURE() << "There is no call " << n << " of '" << function << "' among: " << Names();
    return Call();
}

unsigned int Recorder::Count(std::string_view function) const {
    Unobserved const unobserved;
    auto const calls = All();
    return static_cast<unsigned int>(
        std::count_if(calls.begin(), calls.end(), [&](Call const& call) { return call.function == function; }));
}

unsigned int Recorder::Interventions() const {
    return state_->interventions;
}

bool Recorder::WaitForCall(std::string_view function, unsigned int count) const {
    bool const hasCome = WaitUntil([&] { return Count(function) >= count; });
    EXPECT_TRUE(hasCome) << "Waited in vain for call " << count << " of '" << function << "'. Calls: " << Names();
    return hasCome;
}

void Recorder::Clear() {
    Unobserved const unobserved;
    std::lock_guard const lock(state_->mutex);
    state_->calls.clear();
    ++state_->clearings;
}

Recorder::Rule::Rule(std::shared_ptr<RecorderState> state, std::string_view function) : state_(std::move(state)) {
    Unobserved const unobserved;
    rule_ = std::make_shared<RuleState>();
    rule_->function = function == "*" ? "*" : Known(std::string(function));
}

Recorder::Rule Recorder::Rule::Command(int command) {
    rule_->hasCommand = true;
    rule_->command = command;
    return *this;
}

Recorder::Rule Recorder::Rule::Where(std::function<bool(Call const&)> condition) {
    rule_->condition = std::move(condition);
    return *this;
}

Recorder::Rule Recorder::Rule::Nth(unsigned int n) {
    rule_->first = n;
    rule_->last = n;
    return *this;
}

Recorder::Rule Recorder::Rule::First(unsigned int count) {
    rule_->last = count;
    rule_->leastApplications = count;
    return *this;
}

Recorder::Rule Recorder::Rule::From(unsigned int n) {
    rule_->first = n;
    return *this;
}

Recorder::Rule Recorder::Rule::Optional() {
    isOptional_ = true;
    return *this;
}

void Recorder::Rule::Fail(int error) {
    RefuseUnlessItCanFail();
    Complete([error](Call& call, FailsWith failsWith, auto const& makeCall) {
        if (call.function == "close" || call.function == "fclose") {
            makeCall(UNLIMITED);
        }
        return Failed(call, failsWith, error);
    });
}

void Recorder::Rule::FailWithoutCalling(int error) {
    RefuseUnlessItCanFail();
    Complete([error](Call& call, FailsWith failsWith, auto const&) { return Failed(call, failsWith, error); });
}

void Recorder::Rule::CallThenFail(int error) {
    RefuseUnlessItCanFail();
    Complete([error](Call& call, FailsWith failsWith, auto const& makeCall) {
        makeCall(UNLIMITED);
        return Failed(call, failsWith, error);
    });
}

void Recorder::Rule::HalfThenFail(int error) {
    RefuseUnlessItCanFail();
    Complete([error](Call& call, FailsWith failsWith, auto const& makeCall) {
        makeCall(call.size / 2);
        return Failed(call, failsWith, error);
    });
}

void Recorder::Rule::Return(long result) {
    Complete([result](Call&, FailsWith, auto const&) { return result; });
}

void Recorder::Rule::Script(std::initializer_list<long> results, int error) {
    rule_->last = rule_->first + static_cast<unsigned int>(results.size()) - 1;
    rule_->leastApplications = static_cast<unsigned int>(results.size());
    auto const next = std::make_shared<std::atomic<std::size_t>>(0);
    Complete([error, next, script = std::vector<long>(results)](Call&, FailsWith, auto const&) {
        long const result = script.at((*next)++);
        if (result == -1) {
            errno = error;
        }
        return result;
    });
}

void Recorder::Rule::Limit(unsigned long count) {
    Complete([count](Call&, FailsWith, auto const& makeCall) { return makeCall(count); });
}

void Recorder::Rule::Before(std::function<void(Call const&)> action) {
    Complete([action = std::move(action)](Call& call, FailsWith, auto const& makeCall) {
        action(call);
        return makeCall(UNLIMITED);
    });
}

void Recorder::Rule::After(std::function<void(Call&)> action) {
    Complete([action = std::move(action)](Call& call, FailsWith, auto const& makeCall) {
        call.result = makeCall(UNLIMITED);
        action(call);
        return call.result;
    });
}

void Recorder::Rule::Instead(std::function<long(Call const&)> action) {
    Complete([action = std::move(action)](Call& call, FailsWith, auto const&) { return action(call); });
}

void Recorder::Rule::RefuseUnlessItCanFail() const {
    if (rule_->function == "umask" || rule_->function == "getenv" || rule_->function == "globfree" ||
        rule_->function == "strerror_r") {
        throw std::invalid_argument("A call of '" + rule_->function + "' can't fail.");
    }
}

template <class Action>
void Recorder::Rule::Complete(Action action) {
    Unobserved const unobserved;
    rule_->action = std::move(action);
    if (isOptional_) {
        rule_->leastApplications = 0;
    }
    std::lock_guard const lock(state_->mutex);
    state_->rules.push_back(rule_);
}

Unobserved::Unobserved() noexcept : previous_(std::exchange(IsUnobserved(), true)) {}

Unobserved::~Unobserved() {
    IsUnobserved() = previous_;
}

} // namespace TestSupport
