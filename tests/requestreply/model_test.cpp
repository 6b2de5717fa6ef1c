// SPDX-License-Identifier: Apache-2.0
// Random operations of many requesters and repliers, compared with a map of what each of them must see.
#include <algorithm>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "support/Seed.hpp"
#include "support/ServiceFixture.hpp"

namespace norvane::test {
namespace {

constexpr int RUNS = 3;
constexpr int STEPS = 10000;
constexpr std::size_t MOST_REQUESTERS = 8;
constexpr std::size_t MOST_REPLIERS = 5;
constexpr std::size_t MOST_LOANS = 30;

// Texts that are there, by their source, which stands before the dot: those of one source come in order.
class Expected {
public:
    void add(const std::string& text) { _by_source[source_of(text)].push_back(text); }
    int count() const {
        std::size_t all = 0;
        for (const auto& source : _by_source) {
            all += source.second.size();
        }
        return static_cast<int>(all);
    }
    /// Checks that `texts` come first, each in the order of its source; when taken, they are there no more.
    void expect_first(const std::vector<std::string>& texts, bool taken) {
        std::map<std::string, std::size_t> seen;
        for (const std::string& text : texts) {
            std::deque<std::string>& there = _by_source[source_of(text)];
            std::size_t& place = seen[source_of(text)];
            ASSERT_LT(place, there.size()) << "\"" << text << "\" should not be there";
            ASSERT_EQ(there[place], text);
            if (taken) {
                there.pop_front();
            } else {
                ++place;
            }
        }
    }

private:
    static std::string source_of(const std::string& text) { return text.substr(0, text.find('.')); }
    std::map<std::string, std::deque<std::string>> _by_source;
};

struct ByOctets {
    bool operator()(const DDS_SampleIdentity_t& left, const DDS_SampleIdentity_t& right) const {
        static_assert(sizeof(DDS_SampleIdentity_t) == 24, "no padding");
        return std::memcmp(&left, &right, sizeof left) < 0;
    }
};

// The replies to each request that are there.
typedef std::map<DDS_SampleIdentity_t, Expected, ByOctets> Calls;

struct Asking {
    std::string name;
    int service;
    std::unique_ptr<TextRequester> entity;
    Calls calls;
    int sent = 0;
};

struct Answering {
    std::string name;
    int service;
    std::unique_ptr<TextReplier> entity;
    Expected requests;
    int sent = 0;
};

struct KnownRequest {
    int service;
    DDS_SampleIdentity_t id;
};

class Model : public ServiceFixture {
protected:
    void run(unsigned seed) {
        _random.seed(seed);
        typedef void (Model::*Operation)();
        const std::pair<unsigned, Operation> OPERATIONS[] = {
            {4, &Model::make_requester}, {3, &Model::make_replier},  {2, &Model::drop_requester}, {2, &Model::drop_replier},
            {30, &Model::send_request},  {20, &Model::get_requests}, {40, &Model::send_reply},    {30, &Model::get_replies_to_one},
            {10, &Model::get_replies},   {15, &Model::wait},         {10, &Model::return_a_loan}};
        std::vector<double> weights;
        for (const auto& each : OPERATIONS) {
            weights.push_back(each.first);
        }
        std::discrete_distribution<std::size_t> choice(weights.begin(), weights.end());
        for (int step = 0; step < STEPS; ++step) {
            SCOPED_TRACE("step " + std::to_string(step));
            (this->*OPERATIONS[choice(_random)].second)();
            if (HasFatalFailure() || HasNonfatalFailure()) {
                return;
            }
        }
        // What is left is what must be left.
        for (Asking& asking : _asking) {
            for (auto& call : asking.calls) {
                check(asking.entity->take_replies(call.first), -1, true, call.second);
            }
            EXPECT_TRUE(asking.entity->take_replies().empty());
        }
        for (Answering& answering : _answering) {
            check(answering.entity->take_requests(), -1, true, answering.requests);
            EXPECT_TRUE(answering.entity->take_requests().empty());
        }
        _asking.clear();
        while (!_loans.empty()) {
            return_a_loan();
        }
        _answering.clear();
        _known.clear();
    }

private:
    struct Kept {
        Texts loan;
        std::vector<std::string> texts;
    };

    unsigned below(std::size_t limit) { return static_cast<unsigned>(_random() % limit); }
    template <typename List>
    typename List::value_type* any_of(List& list) {
        return list.empty() ? nullptr : &list[below(list.size())];
    }
    template <typename List>
    void drop_any_of(List& list) {
        if (!list.empty()) {
            list.erase(list.begin() + below(list.size()));
        }
    }
    std::string service_name(int service) { return "S" + std::to_string(service); }
    int any_service() { return static_cast<int>(below(2)); }
    // All, some, or one.
    int any_count() {
        const unsigned dice = below(4);
        return dice == 0 ? 1 : dice == 1 ? static_cast<int>(below(5)) : DDS_LENGTH_UNLIMITED;
    }

    template <typename List>
    static int count_of(const List& list, int service) {
        return static_cast<int>(std::count_if(list.begin(), list.end(), [&](const auto& each) { return each.service == service; }));
    }
    // So that what is sent next goes to everybody.
    void await_everybody() {
        for (Asking& asking : _asking) {
            await_repliers(*asking.entity, count_of(_answering, asking.service));
        }
        // The repliers know them, too: one that has not heard of a requester answers it as one that nobody knows.
        for (Answering& answering : _answering) {
            await_requesters(*answering.entity, count_of(_asking, answering.service));
        }
    }
    void make_requester() {
        if (_asking.size() < MOST_REQUESTERS) {
            const int service = any_service();
            _asking.push_back({"A" + std::to_string(++_made), service, nullptr, {}});
            _asking.back().entity = std::make_unique<TextRequester>(requester_params(nullptr, service_name(service)));
            await_everybody();
        }
    }
    void make_replier() {
        if (_answering.size() < MOST_REPLIERS) {
            const int service = any_service();
            _answering.push_back({"B" + std::to_string(++_made), service, nullptr, {}});
            _answering.back().entity = std::make_unique<TextReplier>(replier_params(_other, service_name(service)));
            await_everybody();
        }
    }
    void drop_requester() {
        drop_any_of(_asking);
        await_everybody();
    }
    void drop_replier() {
        drop_any_of(_answering);
        await_everybody();
    }

    void send_request() {
        Asking* const asking = any_of(_asking);
        if (asking == nullptr) {
            return;
        }
        const std::string text = asking->name + "." + std::to_string(++asking->sent);
        const DDS_SampleIdentity_t id = asking->entity->send_request(text);
        EXPECT_EQ(DDS_RETCODE_OK, asking->entity->get_request_datawriter()->wait_for_acknowledgments({30, 0}));
        EXPECT_TRUE(asking->calls.emplace(id, Expected()).second) << "an identity was given twice";
        _known.push_back({asking->service, id});
        for (Answering& answering : _answering) {
            if (answering.service == asking->service) {
                answering.requests.add(text);
            }
        }
    }
    // To whatever request was ever sent there, whether or not this replier has seen it, and its requester is still there.
    void send_reply() {
        Answering* const answering = any_of(_answering);
        const KnownRequest* const request = any_of(_known);
        if (answering == nullptr || request == nullptr || request->service != answering->service) {
            return;
        }
        const std::string text = answering->name + "." + std::to_string(++answering->sent);
        answering->entity->send_reply(text, request->id);
        EXPECT_EQ(DDS_RETCODE_OK, answering->entity->get_reply_datawriter()->wait_for_acknowledgments({30, 0}));
        for (Asking& asking : _asking) {
            const auto call = asking.calls.find(request->id);
            if (call != asking.calls.end()) {
                call->second.add(text);
            }
        }
    }

    void check(Texts loan, int max_count, bool taken, Expected& expected) {
        const int all = expected.count();
        EXPECT_EQ(max_count == DDS_LENGTH_UNLIMITED ? all : std::min(all, max_count), loan.length());
        Kept kept{std::move(loan), {}};
        kept.texts = strings_of(kept.loan);
        expected.expect_first(kept.texts, taken);
        keep(std::move(kept));
    }
    void keep(Kept kept) {
        if (!kept.loan.empty() && _loans.size() < MOST_LOANS && below(2) == 0) {
            _loans.push_back(std::move(kept));
        }
    }
    // Maybe long after its reader, and never changed by anything that happened since.
    void return_a_loan() {
        Kept* const kept = any_of(_loans);
        if (kept != nullptr) {
            EXPECT_EQ(kept->texts, strings_of(kept->loan));
            std::swap(*kept, _loans.back());
            _loans.pop_back();
        }
    }

    void get_requests() {
        Answering* const answering = any_of(_answering);
        if (answering != nullptr) {
            const int max_count = any_count();
            const bool taken = below(3) != 0;
            check(taken ? answering->entity->take_requests(max_count) : answering->entity->read_requests(max_count), max_count,
                  taken, answering->requests);
        }
    }
    void get_replies_to_one() {
        Asking* const asking = any_of(_asking);
        if (asking == nullptr || asking->calls.empty()) {
            return;
        }
        const auto call = std::next(asking->calls.begin(), below(asking->calls.size()));
        const int max_count = any_count();
        const bool taken = below(3) != 0;
        check(taken ? asking->entity->take_replies(max_count, call->first) : asking->entity->read_replies(max_count, call->first),
              max_count, taken, call->second);
    }
    void get_replies() {
        Asking* const asking = any_of(_asking);
        if (asking == nullptr) {
            return;
        }
        int all = 0;
        for (const auto& call : asking->calls) {
            all += call.second.count();
        }
        const int max_count = any_count();
        Kept kept{asking->entity->take_replies(max_count), {}};
        EXPECT_EQ(max_count == DDS_LENGTH_UNLIMITED ? all : std::min(all, max_count), kept.loan.length());
        for (const auto& reply : kept.loan) {
            const auto call = asking->calls.find(reply.related_identity());
            ASSERT_NE(call, asking->calls.end()) << "a reply to somebody else's request";
            call->second.expect_first({reply.c_str()}, true);
            kept.texts.push_back(reply);
        }
        keep(std::move(kept));
    }
    void wait() {
        Asking* const asking = any_of(_asking);
        if (asking == nullptr || asking->calls.empty()) {
            return;
        }
        const auto call = std::next(asking->calls.begin(), below(asking->calls.size()));
        const int wanted = static_cast<int>(below(4));
        const bool enough = call->second.count() >= wanted;
        EXPECT_EQ(enough, enough ? asking->entity->wait_for_replies(PATIENCE, wanted, call->first)
                                 : asking->entity->wait_for_replies(DDS_DURATION_ZERO, wanted, call->first));
    }

    std::mt19937 _random;
    DDSDomainParticipant* const _other = join();
    std::vector<Asking> _asking;
    std::vector<Answering> _answering;
    std::vector<KnownRequest> _known;
    std::vector<Kept> _loans;
    int _made = 0;
};
INSTANTIATE_TEST_SUITE_P(Engine, Model, ::testing::ValuesIn(engine_names()), engine_of_test);

TEST_P(Model, agrees_with_requesters_and_repliers_on_random_operations) {
    for (int run_number = 0; run_number < RUNS && !HasFailure(); ++run_number) {
        run(test_seed());
    }
}

}  // namespace
}  // namespace norvane::test
