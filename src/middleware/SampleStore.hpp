// SPDX-License-Identifier: Apache-2.0
// The samples of one reader: their states, their keys, the loans, and the conditions that wait for them.
//
// Invariants:
// 1. One mutex guards everything but the counters that triggers read. It is never held while user code runs or an engine is called.
//    Order: engine, this mutex, wait set.
// 2. A slot is listed (to be read or taken), pinned (on loan), or both; otherwise it is free. Listed and pinned slots occupy room,
//    and so do those reserved by `admit`.
// 3. A reservation has its slot, its key and its place in the index: `commit` cannot fail.
// 4. The store counts its holders: the reader, its status condition, each read condition, each loan. The last release notifies the
//    owner.
// Selections, keys and loans have their own: SampleSelection.hpp, KeyTable.hpp, LoanTable.hpp.
#ifndef NORVANE_MIDDLEWARE_SAMPLESTORE_HPP
#define NORVANE_MIDDLEWARE_SAMPLESTORE_HPP

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "middleware/ConditionCore.hpp"
#include "middleware/Engine.hpp"
#include "middleware/KeyTable.hpp"
#include "middleware/LoanTable.hpp"
#include "middleware/ReadCondition.hpp"
#include "middleware/SampleSelection.hpp"
#include "middleware/SpinHistory.hpp"
#include "norvane/dds/DataReader.hpp"
#include "platform/Processor.hpp"

namespace norvane {
namespace mw {

class FilterExpression;

/// What happened to samples that were not kept.
struct LossCounts {
    std::atomic<std::int64_t> no_room{0};
    std::atomic<std::int64_t> replaced{0};
    std::atomic<std::int64_t> closed_key{0};
};

/// What the store asks of its reader.
class SampleStoreOwner {
public:
    virtual DDSDataReader* store_reader() noexcept = 0;
    virtual DDS_DataReader* c_reader() noexcept = 0;
    /// There is room again for an engine that was told FULL. Called without the lock.
    virtual void room_freed() noexcept = 0;
    /// The last holder has released the store. Called without the lock, once; the store is not touched afterwards.
    virtual void last_holder_gone() noexcept = 0;

protected:
    ~SampleStoreOwner() = default;
};

struct SampleStoreSettings {
    bool keep_all = true;
    DDS_Long depth = 1;
    DDS_Long max_samples = DDS_LENGTH_UNLIMITED;
    DDS_Long initial_samples = 0;
    DDS_Long max_samples_per_take = DDS_LENGTH_UNLIMITED;
    std::shared_ptr<const DDS_TypeOperations> type;
    bool routed = false;  ///< Only samples whose related writer GUID is `route` pass.
    DDS_GUID_t route = DDS_GUID_UNKNOWN;
    std::shared_ptr<const std::atomic<std::int64_t>> last_asked;  ///< Number of that writer's latest sample; null: not known.
    std::shared_ptr<const FilterExpression> filter;               ///< Null: every other sample passes.
    std::shared_ptr<SpinHistory> spin_history = std::make_shared<SpinHistory>();
};

class SampleStore {
public:
    SampleStore(SampleStoreOwner& owner, const SampleStoreSettings& settings);
    ~SampleStore();
    SampleStore(const SampleStore&) = delete;
    SampleStore& operator=(const SampleStore&) = delete;

    /// Makes room for the initial samples. @return false when memory is short.
    bool prepare() noexcept;

    // ---- for the engine
    Admission admit(const SampleMetadata& metadata, const void* data) noexcept;
    void abandon() noexcept;
    /// @return whether it was stored: a filter that needs the sample is evaluated here when `admit` could not.
    bool commit(SampleReference sample, platform::WakeBatch& wake) noexcept;
    /// @param sample  null afterwards when the answer is SLOT.
    Admission deliver(SampleReference& sample, platform::WakeBatch& wake) noexcept;

    // ---- for the reader
    ReadCondition* create_condition(DDS_SampleStateMask sample_states, DDS_ViewStateMask view_states,
                                    DDS_InstanceStateMask instance_states) noexcept;
    ReadCondition* create_key_condition(DDS_SampleStateMask sample_states, DDS_ViewStateMask view_states,
                                        DDS_InstanceStateMask instance_states, const char* index_name, std::uint64_t key) noexcept;
    [[nodiscard]] DDS_ReturnCode_t delete_condition(ReadCondition& condition) noexcept;
    std::size_t condition_count() noexcept;
    /// Deletes every condition.
    void delete_conditions() noexcept;

    [[nodiscard]] DDS_ReturnCode_t create_index(const char* index_name) noexcept;
    [[nodiscard]] DDS_ReturnCode_t interrupt(DDS_ReturnCode_t code) noexcept;
    [[nodiscard]] DDS_ReturnCode_t interrupt_key(const char* index_name, std::uint64_t key, DDS_ReturnCode_t code) noexcept;
    [[nodiscard]] DDS_ReturnCode_t admit_open_keys_only(const char* index_name, bool open_only) noexcept;
    [[nodiscard]] DDS_ReturnCode_t open_key(const char* index_name, std::uint64_t key) noexcept;
    [[nodiscard]] DDS_ReturnCode_t close_key(const char* index_name, std::uint64_t key) noexcept;

    [[nodiscard]] DDS_ReturnCode_t read_or_take(void*** received_data, int* data_count, DDS_SampleInfoSeq& info_seq,
                                                DDS_Long max_samples, ReadCondition& condition, bool take) noexcept;
    [[nodiscard]] DDS_ReturnCode_t read_or_take(void*** received_data, int* data_count, DDS_SampleInfoSeq& info_seq,
                                                DDS_Long max_samples, DDS_SampleStateMask states, bool take) noexcept;
    [[nodiscard]] DDS_ReturnCode_t read_or_take_key(void*** received_data, int* data_count, DDS_SampleInfoSeq& info_seq,
                                                    DDS_Long max_samples, const char* index_name, std::uint64_t key,
                                                    bool take) noexcept;
    [[nodiscard]] DDS_ReturnCode_t return_loan(void** received_data, DDS_SampleInfoSeq& info_seq) noexcept;

    /// Drops all samples that are not on loan, and accepts no more.
    void close() noexcept;
    /// Releases one holder's reference. The store may be destroyed afterwards.
    void drop_holder() noexcept;

    /// The reader's status condition, which is signalled at every arrival while it is attached. Guarded by `mutex()`.
    void set_status_condition(DDS_Condition* condition) noexcept { _status_condition = condition; }
    platform::BriefMutex& mutex() noexcept { return _mutex; }
    /// Counts arrivals.
    std::int64_t arrivals() const noexcept { return _received.load(std::memory_order_acquire); }
    /// Whether something has arrived since the last read or take, for the data-available status.
    bool has_unseen() const noexcept { return arrivals() != _seen.load(std::memory_order_relaxed); }

    /// @return the number of samples that have not been taken.
    std::int64_t held() const noexcept {
        return _whole.unread_count.load(std::memory_order_relaxed) + _whole.read_count.load(std::memory_order_relaxed);
    }

    const LossCounts& losses() const noexcept { return _losses; }
    void count_no_room() noexcept { _losses.no_room.fetch_add(1, std::memory_order_relaxed); }

    SampleSelection& whole() noexcept { return _whole; }
    SpinHistory& spin_history() noexcept { return *_settings.spin_history; }
    SampleStoreOwner& owner() noexcept { return _owner; }

private:
    friend class ReadCondition;

    bool passes_filter(const SampleMetadata& metadata, const void* data) const noexcept;
    bool is_awaited_locked(const SampleMetadata& metadata) noexcept;
    Admission admit_locked(const SampleMetadata& metadata) noexcept;
    bool make_room_for_one_more_locked() noexcept;
    Sample* store_locked(SampleReference sample, platform::WakeBatch& wake) noexcept;
    bool has_room_locked() const noexcept;

    ReadCondition* create_condition_locked(DDS_SampleStateMask sample_states, DDS_ViewStateMask view_states,
                                           DDS_InstanceStateMask instance_states, SampleSelection& selection) noexcept;
    void delete_condition_locked(ReadCondition& condition) noexcept;
    void dispose(ReadCondition& condition) noexcept;

    bool grow_slots_locked(std::size_t count) noexcept;
    void list_locked(SampleSlot& slot, SampleSelection& selection, platform::WakeBatch& wake) noexcept;
    void index_locked(SampleSlot& slot) noexcept;
    void interrupt_locked(SampleSelection& selection, DDS_ReturnCode_t code, platform::WakeBatch& wake) noexcept;

    [[nodiscard]] DDS_ReturnCode_t lend_locked(Loan*& loan, DDS_Long max_samples, SampleSelection& selection,
                                               DDS_SampleStateMask states, bool take, platform::WakeBatch& wake) noexcept;
    template <typename Select>
    [[nodiscard]] DDS_ReturnCode_t lend(void*** received_data, int* data_count, DDS_SampleInfoSeq& info_seq,
                                        Select select) noexcept;
    static void fill(Loan& loan) noexcept;
    void mark_read_locked(SampleSlot& slot, platform::WakeBatch& wake) noexcept;
    void unlist_locked(SampleSlot& slot) noexcept;
    Sample* free_slot_locked(SampleSlot& slot) noexcept;
    Sample* drop_front_locked(SampleSelection& selection) noexcept;
    bool claim_room_notice_locked() noexcept;
    void after_unlock(bool room_notice, bool last_holder) noexcept;

    SampleStoreOwner& _owner;
    const SampleStoreSettings _settings;

    // Writers and the reader's threads take turns with what follows, often from different processors. So what every sample changes is
    // kept together: each cache line costs a transfer at each turn.
    alignas(platform::CACHE_LINE) platform::BriefMutex _mutex;
    bool _closed = false;
    bool _full_reported = false;
    std::size_t _holders = 2;  // the reader, and its status condition, which shares the mutex
    std::size_t _occupied = 0;
    std::size_t _reserved = 0;
    std::size_t _listed = 0;
    std::atomic<std::int64_t> _received{0};  // changes under the mutex
    std::atomic<std::int64_t> _seen{0};      // arrivals before the last read or take; changes under the mutex
    std::uint64_t _known_asked = 0;          // as of the last look

    SampleSelection _whole;
    SampleSlot* _free_slots = nullptr;
    std::size_t _free_slot_count = 0;
    DDS_Condition* _status_condition = nullptr;
    KeyTable _keys;

    std::size_t _conditions = 0;
    std::vector<std::unique_ptr<SampleSlot[]>> _slot_chunks;
    ReadCondition* _free_conditions = nullptr;
    std::vector<std::unique_ptr<ReadCondition>> _all_conditions;

    LoanTable _loans;

    LossCounts _losses;
};

}  // namespace mw
}  // namespace norvane

#endif
