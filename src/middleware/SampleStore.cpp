// SPDX-License-Identifier: Apache-2.0
#include "middleware/SampleStore.hpp"

#include <algorithm>
#include <climits>
#include <mutex>
#include <new>

#include "middleware/FilterExpression.hpp"
#include "middleware/Log.hpp"

namespace norvane {
namespace mw {

namespace {

typedef std::lock_guard<platform::BriefMutex> Lock;

constexpr int WHOLE_LINK = 0;
constexpr int KEY_LINK = 2;

std::uint64_t key_of(const DDS_SequenceNumber_t& number) noexcept {
    return (static_cast<std::uint64_t>(static_cast<std::uint32_t>(number.high)) << 32) | number.low;
}

bool answers_a_sample(const SampleMetadata& metadata) noexcept {
    return metadata.related_identity.sequence_number != DDS::SEQUENCE_NUMBER_UNKNOWN;
}

// The counters change under the lock alone; they are atomic for the triggers that read them without it.
void add(std::atomic<std::int64_t>& counter, std::int64_t change) noexcept {
    counter.store(counter.load(std::memory_order_relaxed) + change, std::memory_order_relaxed);
}

}  // namespace

void SlotList::push_back(SampleSlot& slot, int link) noexcept {
    slot.links[link].previous = _last;
    slot.links[link].next = nullptr;
    if (_last != nullptr) {
        _last->links[link].next = &slot;
    } else {
        _first = &slot;
    }
    _last = &slot;
}

void SlotList::remove(SampleSlot& slot, int link) noexcept {
    const ListLink<SampleSlot>& out = slot.links[link];
    if (out.previous != nullptr) {
        out.previous->links[link].next = out.next;
    } else {
        _first = out.next;
    }
    if (out.next != nullptr) {
        out.next->links[link].previous = out.previous;
    } else {
        _last = out.previous;
    }
}

/// Samples lent to the application in one go. Known by its array and its infos together.
struct SampleStore::Loan {
    static constexpr int ROOM = 4;     // enough for the usual loan
    static constexpr int KEPT = 4096;  // arrays larger than this are not kept for the next loan

    int capacity = ROOM;
    int count = 0;
    void** data = few_data;
    DDS_SampleInfo* infos = few_infos;
    SampleSlot** slots = few_slots;
    Loan* next_free = nullptr;

    void* few_data[ROOM];
    DDS_SampleInfo few_infos[ROOM];
    SampleSlot* few_slots[ROOM];
    std::unique_ptr<void*[]> many_data;
    std::unique_ptr<DDS_SampleInfo[]> many_infos;
    std::unique_ptr<SampleSlot*[]> many_slots;

    bool make_room(int wanted) noexcept {
        if (wanted <= capacity) {
            return true;
        }
        const int fresh = wanted <= INT_MAX / 2 ? std::max(wanted, capacity * 2) : wanted;
        const std::size_t size = static_cast<std::size_t>(fresh);
        std::unique_ptr<void*[]> fresh_data(new (std::nothrow) void*[size]);
        std::unique_ptr<DDS_SampleInfo[]> fresh_infos(new (std::nothrow) DDS_SampleInfo[size]);
        std::unique_ptr<SampleSlot*[]> fresh_slots(new (std::nothrow) SampleSlot*[size]);
        if (fresh_data == nullptr || fresh_infos == nullptr || fresh_slots == nullptr) {
            return false;
        }
        many_data = std::move(fresh_data);
        many_infos = std::move(fresh_infos);
        many_slots = std::move(fresh_slots);
        data = many_data.get();
        infos = many_infos.get();
        slots = many_slots.get();
        capacity = fresh;
        return true;
    }

    void shrink() noexcept {
        many_data.reset();
        many_infos.reset();
        many_slots.reset();
        data = few_data;
        infos = few_infos;
        slots = few_slots;
        capacity = ROOM;
    }
};

SampleStore::SampleStore(SampleStoreOwner& owner, const SampleStoreSettings& settings) : _owner(owner), _settings(settings) {
    _whole.link = WHOLE_LINK;
}

SampleStore::~SampleStore() {
    while (_whole.all.front() != nullptr) {
        Sample* sample = drop_front_locked(_whole);
        if (sample != nullptr) {
            release(*sample);
        }
    }
}

bool SampleStore::prepare() noexcept {
    Lock lock(_mutex);
    return _settings.initial_samples <= 0 || grow_slots_locked(static_cast<std::size_t>(_settings.initial_samples));
}

// ---- arrival ----------------------------------------------------------------------------------------------------

bool SampleStore::passes_filter(const SampleMetadata& metadata, const void* data) const noexcept {
    if (_settings.routed && metadata.related_identity.writer_guid != _settings.route) {
        return false;
    }
    return _settings.filter == nullptr || (data == nullptr && _settings.filter->needs_data()) ||
           _settings.filter->evaluate(metadata, data);
}

Admission SampleStore::admit(const SampleMetadata& metadata, const void* data) noexcept {
    if (!passes_filter(metadata, data)) {
        return Admission::FILTERED;
    }
    Lock lock(_mutex);
    const Admission admission = admit_locked(metadata);
    if (admission == Admission::SLOT) {
        ++_reserved;
    }
    return admission;
}

Admission SampleStore::admit_locked(const SampleMetadata& metadata) noexcept {
    if (_closed) {
        return Admission::UNWANTED;
    }
    if (_open_only && answers_a_sample(metadata) && _open_keys.is_over(key_of(metadata.related_identity.sequence_number))) {
        _losses.closed_key.fetch_add(1, std::memory_order_relaxed);
        return Admission::UNWANTED;
    }
    if (!has_room_locked()) {
        _full_reported = true;
        return Admission::FULL;
    }
    return make_room_for_one_more_locked() ? Admission::SLOT : Admission::NO_MEMORY;
}

bool SampleStore::has_room_locked() const noexcept {
    if (_settings.max_samples == DDS_LENGTH_UNLIMITED) {
        return true;
    }
    std::size_t will_be_replaced = 0;
    if (!_settings.keep_all) {
        const std::size_t depth = static_cast<std::size_t>(_settings.depth);
        const std::size_t listed = _listed + _reserved + 1;
        std::size_t leaving = listed > depth ? listed - depth : 0;
        // The oldest go, and only those that are not on loan leave room behind.
        for (const SampleSlot* slot = _whole.all.front(); leaving > 0 && slot != nullptr;
             slot = slot->links[WHOLE_LINK].next, --leaving) {
            will_be_replaced += slot->pins == 0 ? 1 : 0;
        }
        // What is reserved will be listed before this one, and make way for it in its turn.
        will_be_replaced += std::min(leaving, _reserved);
    }
    return _occupied + _reserved + 1 - will_be_replaced <= static_cast<std::size_t>(_settings.max_samples);
}

bool SampleStore::make_room_for_one_more_locked() noexcept {
    const std::size_t wanted = _reserved + 1;
    if (_free_slot_count < wanted && !grow_slots_locked(wanted - _free_slot_count)) {
        return false;
    }
    return !_indexed || reserve_keys_locked(wanted);
}

bool SampleStore::grow_slots_locked(std::size_t count) noexcept {
    constexpr std::size_t SMALLEST = 16;
    constexpr std::size_t LARGEST = 4096;
    const std::size_t made = std::max(count, std::min(std::max(_occupied, SMALLEST), LARGEST));
    try {
        std::unique_ptr<SampleSlot[]> chunk(new SampleSlot[made]);
        _slot_chunks.push_back(std::move(chunk));
    } catch (const std::bad_alloc&) {
        return false;
    }
    SampleSlot* chunk = _slot_chunks.back().get();
    for (std::size_t index = 0; index < made; ++index) {
        chunk[index].next_free = _free_slots;
        _free_slots = &chunk[index];
    }
    _free_slot_count += made;
    return true;
}

void SampleStore::abandon() noexcept {
    Lock lock(_mutex);
    --_reserved;
    _full_reported = false;  // the engine passes this on itself: it may not be called from here
}

bool SampleStore::commit(Sample& sample, platform::WakeBatch& wake) noexcept {
    // What could not be looked at before it was decoded is looked at now.
    if (_settings.filter != nullptr && _settings.filter->needs_data() &&
        !_settings.filter->evaluate(sample.metadata, sample.data)) {
        abandon();
        return false;
    }
    Sample* replaced = nullptr;
    {
        Lock lock(_mutex);
        --_reserved;
        replaced = store_locked(sample, wake);
    }
    if (replaced != nullptr) {
        release(*replaced);
    }
    return true;
}

Admission SampleStore::deliver(Sample& sample, platform::WakeBatch& wake) noexcept {
    if (!passes_filter(sample.metadata, sample.data)) {
        return Admission::FILTERED;
    }
    Sample* replaced = nullptr;
    {
        Lock lock(_mutex);
        const Admission admission = admit_locked(sample.metadata);
        if (admission != Admission::SLOT) {
            return admission;
        }
        replaced = store_locked(sample, wake);
    }
    if (replaced != nullptr) {
        release(*replaced);
    }
    return Admission::SLOT;
}

Sample* SampleStore::store_locked(Sample& sample, platform::WakeBatch& wake) noexcept {
    Sample* replaced = nullptr;
    if (!_settings.keep_all && _listed >= static_cast<std::size_t>(_settings.depth)) {
        replaced = drop_front_locked(_whole);
        _losses.replaced.fetch_add(1, std::memory_order_relaxed);
    }
    retain(sample);
    SampleSlot& slot = *_free_slots;
    _free_slots = slot.next_free;
    --_free_slot_count;
    slot.sample = &sample;
    slot.key = nullptr;
    slot.reception_number = ++_received;
    slot.pins = 0;
    slot.listed = true;
    slot.read = false;
    ++_occupied;
    ++_listed;
    list_locked(slot, _whole, wake);
    if (_indexed && answers_a_sample(sample.metadata)) {
        index_locked(slot);
        list_locked(slot, *slot.key, wake);
    }
    _arrivals.store(_received, std::memory_order_release);
    if (_status_condition != nullptr && _status_condition->is_attached_locked()) {
        _status_condition->signal_locked(wake);
    }
    return replaced;
}

void SampleStore::list_locked(SampleSlot& slot, SampleSelection& selection, platform::WakeBatch& wake) noexcept {
    selection.all.push_back(slot, selection.link);
    selection.unread.push_back(slot, selection.link + 1);
    add(selection.unread_count, 1);
    for (ReadCondition* condition = selection.conditions.front(); condition != nullptr;
         condition = selection.conditions.next(*condition)) {
        if ((condition->effective_states() & DDS_NOT_READ_SAMPLE_STATE) != 0) {
            condition->signal_locked(wake);
        }
    }
}

// ---- index ------------------------------------------------------------------------------------------------------

bool SampleStore::has_index_locked(const char* index_name) const noexcept {
    if (index_name == nullptr) {
        return false;
    }
    return std::any_of(_index_names.begin(), _index_names.end(),
                       [index_name](const std::string& name) { return name == index_name; });
}

bool SampleStore::reserve_keys_locked(std::size_t more) noexcept {
    if (!_keys.reserve(_keys.size() + more)) {
        return false;
    }
    if (_free_key_count >= more) {
        return true;
    }
    constexpr std::size_t SMALLEST = 16;
    constexpr std::size_t LARGEST = 4096;
    const std::size_t made = std::max(more - _free_key_count, std::min(std::max(_keys.size(), SMALLEST), LARGEST));
    try {
        std::unique_ptr<SampleSelection[]> chunk(new SampleSelection[made]);
        _key_chunks.push_back(std::move(chunk));
    } catch (const std::bad_alloc&) {
        return false;
    }
    SampleSelection* chunk = _key_chunks.back().get();
    for (std::size_t index = 0; index < made; ++index) {
        chunk[index].link = KEY_LINK;
        chunk[index].next_free = _free_keys;
        _free_keys = &chunk[index];
    }
    _free_key_count += made;
    return true;
}

SampleSelection& SampleStore::key_record_locked(std::uint64_t key) noexcept {
    SampleSelection* found = _keys.find(key);
    if (found == nullptr) {
        found = _free_keys;
        _free_keys = found->next_free;
        --_free_key_count;
        found->key = key;
        _keys.insert(key, found);
    }
    return *found;
}

void SampleStore::drop_key_if_idle_locked(SampleSelection& key) noexcept {
    if (key.all.front() == nullptr && key.conditions.empty() &&
        key.interruption.load(std::memory_order_relaxed) == DDS_RETCODE_OK) {
        _keys.erase(key.key);
        key.next_free = _free_keys;
        _free_keys = &key;
        ++_free_key_count;
    }
}

void SampleStore::index_locked(SampleSlot& slot) noexcept {
    slot.key = &key_record_locked(key_of(slot.sample->metadata.related_identity.sequence_number));
}

DDS_ReturnCode_t SampleStore::create_index(const char* index_name) noexcept {
    if (index_name == nullptr || *index_name == '\0') {
        log_error("DDSDataReader::create_index", "the index name is null or empty");
        return DDS_RETCODE_BAD_PARAMETER;
    }
    Lock lock(_mutex);
    if (_closed) {
        return DDS_RETCODE_ALREADY_DELETED;
    }
    if (has_index_locked(index_name)) {
        log_error("DDSDataReader::create_index",
                  [index_name] { return std::string("there is an index \"") + index_name + "\" already"; });
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    }
    // Room first, for the samples that are there and for those that are on their way.
    if (!reserve_keys_locked(_listed + _reserved)) {
        return DDS_RETCODE_OUT_OF_RESOURCES;
    }
    try {
        _index_names.emplace_back(index_name);
    } catch (const std::bad_alloc&) {
        return DDS_RETCODE_OUT_OF_RESOURCES;
    }
    if (_indexed) {
        return DDS_RETCODE_OK;  // another name for what there is: every index has the same key
    }
    _indexed = true;
    for (SampleSlot* slot = _whole.all.front(); slot != nullptr; slot = slot->links[WHOLE_LINK].next) {
        if (!answers_a_sample(slot->sample->metadata)) {
            continue;
        }
        index_locked(*slot);
        slot->key->all.push_back(*slot, KEY_LINK);
        if (slot->read) {
            add(slot->key->read_count, 1);
        } else {
            slot->key->unread.push_back(*slot, KEY_LINK + 1);
            add(slot->key->unread_count, 1);
        }
    }
    return DDS_RETCODE_OK;
}

// ---- interruption and open keys -----------------------------------------------------------------------------------

void SampleStore::interrupt_locked(SampleSelection& selection, DDS_ReturnCode_t code, platform::WakeBatch& wake) noexcept {
    selection.interruption.store(code, std::memory_order_relaxed);
    if (code == DDS_RETCODE_OK) {
        return;
    }
    for (ReadCondition* condition = selection.conditions.front(); condition != nullptr;
         condition = selection.conditions.next(*condition)) {
        condition->signal_locked(wake);
    }
}

DDS_ReturnCode_t SampleStore::interrupt(DDS_ReturnCode_t code) noexcept {
    platform::WakeBatch wake;
    Lock lock(_mutex);
    interrupt_locked(_whole, code, wake);
    if (code != DDS_RETCODE_OK) {
        for (const std::unique_ptr<ReadCondition>& condition : _all_conditions) {
            condition->signal_locked(wake);
        }
    }
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t SampleStore::interrupt_key(const char* index_name, std::uint64_t key, DDS_ReturnCode_t code) noexcept {
    platform::WakeBatch wake;
    Lock lock(_mutex);
    if (!has_index_locked(index_name)) {
        return DDS_RETCODE_BAD_PARAMETER;
    }
    if (!reserve_keys_locked(_reserved + 1)) {
        return DDS_RETCODE_OUT_OF_RESOURCES;
    }
    SampleSelection& selection = key_record_locked(key);
    interrupt_locked(selection, code, wake);
    drop_key_if_idle_locked(selection);
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t SampleStore::admit_open_keys_only(const char* index_name, bool open_only) noexcept {
    Lock lock(_mutex);
    if (!has_index_locked(index_name)) {
        return DDS_RETCODE_BAD_PARAMETER;
    }
    _open_only = open_only;
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t SampleStore::open_key(const char* index_name, std::uint64_t key) noexcept {
    Lock lock(_mutex);
    if (!has_index_locked(index_name)) {
        return DDS_RETCODE_BAD_PARAMETER;
    }
    return _open_keys.open(key) ? DDS_RETCODE_OK : DDS_RETCODE_OUT_OF_RESOURCES;
}

DDS_ReturnCode_t SampleStore::close_key(const char* index_name, std::uint64_t key) noexcept {
    bool room_notice = false;
    for (;;) {
        Sample* dropped = nullptr;
        {
            Lock lock(_mutex);
            if (!has_index_locked(index_name)) {
                return DDS_RETCODE_BAD_PARAMETER;
            }
            if (!_open_keys.close(key)) {
                return DDS_RETCODE_OUT_OF_RESOURCES;
            }
            SampleSelection* selection = _keys.find(key);
            if (selection != nullptr) {
                selection->interruption.store(DDS_RETCODE_OK, std::memory_order_relaxed);
            }
            if (selection == nullptr || selection->all.front() == nullptr) {
                if (selection != nullptr) {
                    drop_key_if_idle_locked(*selection);
                }
                room_notice = claim_room_notice_locked();
                break;
            }
            dropped = drop_front_locked(*selection);
            _losses.closed_key.fetch_add(1, std::memory_order_relaxed);
        }
        if (dropped != nullptr) {
            release(*dropped);
        }
    }
    after_unlock(room_notice, false);
    return DDS_RETCODE_OK;
}

// ---- conditions ---------------------------------------------------------------------------------------------------

ReadCondition* SampleStore::create_condition(DDS_SampleStateMask sample_states, DDS_ViewStateMask view_states,
                                             DDS_InstanceStateMask instance_states) noexcept {
    Lock lock(_mutex);
    return create_condition_locked(sample_states, view_states, instance_states, _whole);
}

ReadCondition* SampleStore::create_key_condition(DDS_SampleStateMask sample_states, DDS_ViewStateMask view_states,
                                                 DDS_InstanceStateMask instance_states, const char* index_name,
                                                 std::uint64_t key) noexcept {
    Lock lock(_mutex);
    if (!has_index_locked(index_name)) {
        log_error("DDSDataReader::create_index_condition", [index_name] {
            return std::string("the reader has no index \"") + (index_name != nullptr ? index_name : "(null)") +
                   "\"; make it with create_index";
        });
        return nullptr;
    }
    if (!reserve_keys_locked(_reserved + 1)) {
        return nullptr;
    }
    SampleSelection& selection = key_record_locked(key);
    ReadCondition* condition = create_condition_locked(sample_states, view_states, instance_states, selection);
    if (condition == nullptr) {
        drop_key_if_idle_locked(selection);
    }
    return condition;
}

ReadCondition* SampleStore::create_condition_locked(DDS_SampleStateMask sample_states, DDS_ViewStateMask view_states,
                                                    DDS_InstanceStateMask instance_states, SampleSelection& selection) noexcept {
    if (_closed) {
        return nullptr;
    }
    if (_free_conditions == nullptr) {
        try {
            std::unique_ptr<ReadCondition> made(new ReadCondition(*this));
            _all_conditions.push_back(std::move(made));
        } catch (const std::bad_alloc&) {
            return nullptr;
        }
        _free_conditions = _all_conditions.back().get();
    }
    ReadCondition* condition = _free_conditions;
    _free_conditions = condition->next_free;
    condition->select(selection, sample_states, view_states, instance_states);
    selection.conditions.push_back(*condition);
    ++_conditions;
    ++_holders;
    return condition;
}

DDS_ReturnCode_t SampleStore::delete_condition(ReadCondition& condition) noexcept {
    {
        Lock lock(_mutex);
        if (!condition.is_live()) {
            return DDS_RETCODE_ALREADY_DELETED;
        }
        delete_condition_locked(condition);
        if (condition.only_reference()) {
            condition.next_free = _free_conditions;
            _free_conditions = &condition;
            --_holders;  // never the last: the caller's reader holds the store
            return DDS_RETCODE_OK;
        }
    }
    condition.release();
    return DDS_RETCODE_OK;
}

void SampleStore::delete_condition_locked(ReadCondition& condition) noexcept {
    condition._live.store(false, std::memory_order_release);
    condition.selection().conditions.remove(condition);
    condition.retire_locked();
    --_conditions;
    if (&condition.selection() != &_whole) {
        drop_key_if_idle_locked(condition.selection());
    }
}

void SampleStore::dispose(ReadCondition& condition) noexcept {
    bool last_holder = false;
    {
        Lock lock(_mutex);
        condition.next_free = _free_conditions;
        _free_conditions = &condition;
        last_holder = --_holders == 0;
    }
    after_unlock(false, last_holder);
}

std::size_t SampleStore::condition_count() noexcept {
    Lock lock(_mutex);
    return _conditions;
}

void SampleStore::delete_conditions() noexcept {
    for (;;) {
        ReadCondition* condition = nullptr;
        {
            Lock lock(_mutex);
            for (const std::unique_ptr<ReadCondition>& candidate : _all_conditions) {
                if (candidate->is_live()) {
                    condition = candidate.get();
                    break;
                }
            }
        }
        if (condition == nullptr) {
            return;
        }
        delete_condition(*condition);
    }
}

// ---- reading ------------------------------------------------------------------------------------------------------

DDS_ReturnCode_t SampleStore::read_or_take(void*** received_data, int* data_count, DDS_SampleInfoSeq& info_seq,
                                           DDS_Long max_samples, ReadCondition& condition, bool take) noexcept {
    platform::WakeBatch wake;
    Lock lock(_mutex);
    if (!condition.is_live()) {
        return DDS_RETCODE_ALREADY_DELETED;
    }
    return lend_locked(received_data, data_count, info_seq, max_samples, condition.selection(), condition.effective_states(), take,
                       wake);
}

DDS_ReturnCode_t SampleStore::read_or_take(void*** received_data, int* data_count, DDS_SampleInfoSeq& info_seq,
                                           DDS_Long max_samples, DDS_SampleStateMask states, bool take) noexcept {
    platform::WakeBatch wake;
    Lock lock(_mutex);
    return lend_locked(received_data, data_count, info_seq, max_samples, _whole, states, take, wake);
}

DDS_ReturnCode_t SampleStore::lend_locked(void*** received_data, int* data_count, DDS_SampleInfoSeq& info_seq, DDS_Long max_samples,
                                          SampleSelection& selection, DDS_SampleStateMask states, bool take,
                                          platform::WakeBatch& wake) noexcept {
    if (_closed) {
        return DDS_RETCODE_ALREADY_DELETED;
    }
    if (max_samples == DDS_LENGTH_UNLIMITED) {
        max_samples = INT_MAX;
    }
    if (take && _settings.max_samples_per_take != DDS_LENGTH_UNLIMITED) {
        max_samples = std::min(max_samples, _settings.max_samples_per_take);
    }
    const bool wants_unread = (states & DDS_NOT_READ_SAMPLE_STATE) != 0;
    const bool wants_read = (states & DDS_READ_SAMPLE_STATE) != 0;
    const std::int64_t there = (wants_unread ? selection.unread_count.load(std::memory_order_relaxed) : 0) +
                               (wants_read ? selection.read_count.load(std::memory_order_relaxed) : 0);
    if (there == 0 || max_samples <= 0) {
        return DDS_RETCODE_NO_DATA;
    }
    const int count = static_cast<int>(std::min<std::int64_t>(there, max_samples));
    Loan* loan = take_loan_locked(count);
    if (loan == nullptr) {
        return DDS_RETCODE_OUT_OF_RESOURCES;
    }
    const int link = wants_read ? selection.link : selection.link + 1;
    SampleSlot* next = nullptr;
    int found = 0;
    for (SampleSlot* slot = wants_read ? selection.all.front() : selection.unread.front(); found < count; slot = next) {
        next = slot->links[link].next;
        if (!slot->read && !wants_unread) {
            continue;
        }
        fill(*loan, found++, *slot);
        if (take) {
            SampleSelection* key = slot->key;
            unlist_locked(*slot);
            if (key != nullptr) {
                drop_key_if_idle_locked(*key);  // not the condition's own: that one has a condition
            }
            ++slot->pins;
            continue;
        }
        ++slot->pins;
        if (!slot->read) {
            mark_read_locked(*slot, wake);
        }
    }
    loan->count = count;
    ++_holders;
    _loans_out.insert(reinterpret_cast<std::uintptr_t>(loan->data), loan);
    info_seq.loan_contiguous(loan->infos, count, count);
    *received_data = loan->data;
    *data_count = count;
    return DDS_RETCODE_OK;
}

void SampleStore::fill(Loan& loan, int index, const SampleSlot& slot) noexcept {
    const SampleMetadata& metadata = slot.sample->metadata;
    loan.data[index] = slot.sample->data;
    loan.slots[index] = const_cast<SampleSlot*>(&slot);
    // The other fields are constant, and were set when the loan was made.
    DDS_SampleInfo& info = loan.infos[index];
    info.sample_state = slot.read ? DDS_READ_SAMPLE_STATE : DDS_NOT_READ_SAMPLE_STATE;
    info.view_state = DDS_NEW_VIEW_STATE;
    info.instance_state = DDS_ALIVE_INSTANCE_STATE;
    info.valid_data = DDS_BOOLEAN_TRUE;
    info.source_timestamp = metadata.source_timestamp;
    info.reception_timestamp = metadata.reception_timestamp;
    std::memcpy(info.publication_handle.value, metadata.identity.writer_guid.value, sizeof info.publication_handle.value);
    info.publication_virtual_guid = metadata.identity.writer_guid;
    info.publication_virtual_sequence_number = metadata.identity.sequence_number;
    info.publication_sequence_number = metadata.identity.sequence_number;
    info.reception_sequence_number = {static_cast<DDS_Long>(slot.reception_number >> 32),
                                      static_cast<DDS_UnsignedLong>(slot.reception_number)};
    info.original_publication_virtual_guid = metadata.identity.writer_guid;
    info.original_publication_virtual_sequence_number = metadata.identity.sequence_number;
    info.related_original_publication_virtual_guid = metadata.related_identity.writer_guid;
    info.related_original_publication_virtual_sequence_number = metadata.related_identity.sequence_number;
}

void SampleStore::mark_read_locked(SampleSlot& slot, platform::WakeBatch& wake) noexcept {
    slot.read = true;
    for (SampleSelection* selection : {&_whole, slot.key}) {
        if (selection == nullptr) {
            continue;
        }
        selection->unread.remove(slot, selection->link + 1);
        add(selection->unread_count, -1);
        add(selection->read_count, 1);
        for (ReadCondition* condition = selection->conditions.front(); condition != nullptr;
             condition = selection->conditions.next(*condition)) {
            if (condition->effective_states() == DDS_READ_SAMPLE_STATE) {
                condition->signal_locked(wake);
            }
        }
    }
}

void SampleStore::unlist_locked(SampleSlot& slot) noexcept {
    for (SampleSelection* selection : {&_whole, slot.key}) {
        if (selection == nullptr) {
            continue;
        }
        selection->all.remove(slot, selection->link);
        if (slot.read) {
            add(selection->read_count, -1);
        } else {
            selection->unread.remove(slot, selection->link + 1);
            add(selection->unread_count, -1);
        }
    }
    slot.key = nullptr;
    slot.listed = false;
    --_listed;
}

SampleStore::Loan* SampleStore::take_loan_locked(int count) noexcept {
    if (!_loans_out.reserve(_loans_out.size() + 1)) {
        return nullptr;
    }
    if (_free_loans == nullptr) {
        try {
            std::unique_ptr<Loan> made(new Loan());
            _all_loans.push_back(std::move(made));
        } catch (const std::bad_alloc&) {
            return nullptr;
        }
        _free_loans = _all_loans.back().get();
    }
    Loan* loan = _free_loans;
    if (!loan->make_room(count)) {
        return nullptr;
    }
    _free_loans = loan->next_free;
    return loan;
}

void SampleStore::keep_loan_locked(Loan& loan) noexcept {
    if (loan.capacity > Loan::KEPT) {
        loan.shrink();
    }
    loan.next_free = _free_loans;
    _free_loans = &loan;
}

DDS_ReturnCode_t SampleStore::return_loan(void** received_data, DDS_SampleInfoSeq& info_seq) noexcept {
    // Clearing a sample runs the type's own code: not under the lock.
    const bool clears = _settings.type->clear != nullptr;
    bool room_notice = false;
    bool last_holder = false;
    Loan* loan = nullptr;
    {
        Lock lock(_mutex);
        loan = _loans_out.find(reinterpret_cast<std::uintptr_t>(received_data));
        if (loan == nullptr || info_seq.has_ownership() || info_seq.get_contiguous_buffer() != loan->infos) {
            return DDS_RETCODE_PRECONDITION_NOT_MET;
        }
        _loans_out.erase(reinterpret_cast<std::uintptr_t>(received_data));
        info_seq.unloan();
        for (int index = 0; index < loan->count; ++index) {
            SampleSlot& slot = *loan->slots[index];
            loan->data[index] = nullptr;
            if (--slot.pins > 0 || slot.listed) {
                continue;
            }
            Sample* sample = free_slot_locked(slot);
            if (clears) {
                loan->data[index] = sample;
            } else {
                release(*sample);
            }
        }
        room_notice = claim_room_notice_locked();
        if (!clears) {
            keep_loan_locked(*loan);
            last_holder = !room_notice && --_holders == 0;
        }
    }
    if (clears) {
        for (int index = 0; index < loan->count; ++index) {
            if (loan->data[index] != nullptr) {
                release(*static_cast<Sample*>(loan->data[index]));
            }
        }
        Lock lock(_mutex);
        keep_loan_locked(*loan);
        last_holder = !room_notice && --_holders == 0;
    }
    after_unlock(room_notice, last_holder);
    if (room_notice) {
        drop_holder();  // only now: the reader may be deleted while its engine is told
    }
    return DDS_RETCODE_OK;
}

Sample* SampleStore::free_slot_locked(SampleSlot& slot) noexcept {
    Sample* sample = slot.sample;
    slot.sample = nullptr;
    slot.next_free = _free_slots;
    _free_slots = &slot;
    ++_free_slot_count;
    --_occupied;
    return sample;
}

Sample* SampleStore::drop_front_locked(SampleSelection& selection) noexcept {
    SampleSlot& slot = *selection.all.front();
    SampleSelection* key = slot.key;
    unlist_locked(slot);
    if (key != nullptr) {
        drop_key_if_idle_locked(*key);
    }
    return slot.pins == 0 ? free_slot_locked(slot) : nullptr;  // a pinned one goes with its loan
}

bool SampleStore::claim_room_notice_locked() noexcept {
    if (!_full_reported || _closed || !has_room_locked()) {
        return false;
    }
    _full_reported = false;
    return true;
}

void SampleStore::after_unlock(bool room_notice, bool last_holder) noexcept {
    if (room_notice) {
        _owner.room_freed();
    }
    if (last_holder) {
        _owner.last_holder_gone();
    }
}

void SampleStore::close() noexcept {
    for (;;) {
        Sample* dropped = nullptr;
        {
            Lock lock(_mutex);
            _closed = true;
            if (_whole.all.front() == nullptr) {
                return;
            }
            dropped = drop_front_locked(_whole);
        }
        if (dropped != nullptr) {
            release(*dropped);
        }
    }
}

void SampleStore::drop_holder() noexcept {
    bool last_holder = false;
    {
        Lock lock(_mutex);
        last_holder = --_holders == 0;
    }
    after_unlock(false, last_holder);
}

}  // namespace mw
}  // namespace norvane
