// SPDX-License-Identifier: Apache-2.0
#include "middleware/SampleStore.hpp"

#include <algorithm>
#include <climits>
#include <mutex>
#include <new>
#include <utility>

#include "middleware/FilterExpression.hpp"
#include "middleware/Log.hpp"
#include "middleware/SequenceNumber.hpp"

namespace norvane {
namespace mw {

namespace {

typedef std::lock_guard<platform::BriefMutex> Lock;

std::uint64_t key_of(const DDS_SequenceNumber_t& number) noexcept { return static_cast<std::uint64_t>(to_integer(number)); }

bool answers_a_sample(const SampleMetadata& metadata) noexcept {
    return metadata.related_identity.sequence_number != DDS::SEQUENCE_NUMBER_UNKNOWN;
}

}  // namespace

SampleStore::SampleStore(SampleStoreOwner& owner, const SampleStoreSettings& settings) : _owner(owner), _settings(settings) {
    _whole.place = &SampleSlot::in_whole;
}

SampleStore::~SampleStore() {
    while (!_whole.all.empty()) {
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

// A peer may answer what was never asked: such samples would stay, and take the room of the answers.
bool SampleStore::is_awaited_locked(const SampleMetadata& metadata) noexcept {
    if (!_keys.admits_open_only()) {
        return true;
    }
    if (!answers_a_sample(metadata)) {
        return !_settings.routed;
    }
    const std::uint64_t key = key_of(metadata.related_identity.sequence_number);
    if (_keys.is_open(key)) {
        return true;
    }
    if (key > _known_asked && _settings.last_asked != nullptr) {  // not each time: the writer's thread writes there
        _known_asked = static_cast<std::uint64_t>(_settings.last_asked->load(std::memory_order_acquire));
    }
    return !_keys.is_over(key) && (key <= _known_asked || _settings.last_asked == nullptr);
}

Admission SampleStore::admit_locked(const SampleMetadata& metadata) noexcept {
    if (_closed) {
        return Admission::UNWANTED;
    }
    if (!is_awaited_locked(metadata)) {
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
        // The oldest samples are dropped; only those that are not on loan free room.
        for (auto place = _whole.all.begin(); leaving > 0 && place != _whole.all.end(); ++place, --leaving) {
            will_be_replaced += place->slot.pins == 0 ? 1 : 0;
        }
        // Reserved slots will be listed before this one, and are dropped for it in their turn.
        will_be_replaced += std::min(leaving, _reserved);
    }
    return _occupied + _reserved + 1 - will_be_replaced <= static_cast<std::size_t>(_settings.max_samples);
}

bool SampleStore::make_room_for_one_more_locked() noexcept {
    const std::size_t wanted = _reserved + 1;
    if (_free_slot_count < wanted && !grow_slots_locked(wanted - _free_slot_count)) {
        return false;
    }
    return !_keys.has_indexes() || _keys.reserve(wanted);
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

bool SampleStore::commit(SampleReference sample, platform::WakeBatch& wake) noexcept {
    // A filter that needs the decoded sample is evaluated now.
    if (_settings.filter != nullptr && _settings.filter->needs_data() &&
        !_settings.filter->evaluate(sample->metadata, sample->data)) {
        abandon();
        return false;
    }
    Sample* replaced = nullptr;
    {
        Lock lock(_mutex);
        --_reserved;
        replaced = store_locked(std::move(sample), wake);
    }
    if (replaced != nullptr) {
        release(*replaced);
    }
    return true;
}

Admission SampleStore::deliver(SampleReference& sample, platform::WakeBatch& wake) noexcept {
    if (!passes_filter(sample->metadata, sample->data)) {
        return Admission::FILTERED;
    }
    Sample* replaced = nullptr;
    {
        Lock lock(_mutex);
        const Admission admission = admit_locked(sample->metadata);
        if (admission != Admission::SLOT) {
            return admission;
        }
        replaced = store_locked(std::move(sample), wake);
    }
    if (replaced != nullptr) {
        release(*replaced);
    }
    return Admission::SLOT;
}

Sample* SampleStore::store_locked(SampleReference sample, platform::WakeBatch& wake) noexcept {
    Sample* replaced = nullptr;
    if (!_settings.keep_all && _listed >= static_cast<std::size_t>(_settings.depth)) {
        replaced = drop_front_locked(_whole);
        _losses.replaced.fetch_add(1, std::memory_order_relaxed);
    }
    SampleSlot& slot = *_free_slots;
    _free_slots = slot.next_free;
    --_free_slot_count;
    slot.sample = sample.release();
    slot.key = nullptr;
    const std::int64_t number = _received.load(std::memory_order_relaxed) + 1;
    _received.store(number, std::memory_order_release);
    slot.reception_number = number;
    slot.pins = 0;
    slot.listed = true;
    slot.read = false;
    ++_occupied;
    ++_listed;
    list_locked(slot, _whole, wake);
    if (_keys.has_indexes() && answers_a_sample(slot.sample->metadata)) {
        index_locked(slot);
        list_locked(slot, *slot.key, wake);
    }
    if (_status_condition != nullptr && _status_condition->is_attached_locked()) {
        _status_condition->signal_locked(wake);
    }
    return replaced;
}

void SampleStore::list_locked(SampleSlot& slot, SampleSelection& selection, platform::WakeBatch& wake) noexcept {
    selection.add(slot);
    for (ReadCondition& condition : selection.conditions) {
        if ((condition.effective_states() & DDS_NOT_READ_SAMPLE_STATE) != 0) {
            condition.signal_locked(wake);
        }
    }
}

// ---- index ------------------------------------------------------------------------------------------------------

void SampleStore::index_locked(SampleSlot& slot) noexcept {
    slot.key = &_keys.record(key_of(slot.sample->metadata.related_identity.sequence_number));
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
    if (_keys.has_index(index_name)) {
        log_error("DDSDataReader::create_index",
                  [index_name] { return std::string("there is an index \"") + index_name + "\" already"; });
        return DDS_RETCODE_PRECONDITION_NOT_MET;
    }
    // Room first, for the samples in the store and for the reserved ones.
    if (!_keys.reserve(_listed + _reserved)) {
        return DDS_RETCODE_OUT_OF_RESOURCES;
    }
    const bool is_first = !_keys.has_indexes();
    if (!_keys.add_index(index_name)) {
        return DDS_RETCODE_OUT_OF_RESOURCES;
    }
    if (!is_first) {
        return DDS_RETCODE_OK;  // another name for what there is
    }
    for (SamplePlace& place : _whole.all) {
        if (answers_a_sample(place.slot.sample->metadata)) {
            index_locked(place.slot);
            place.slot.key->add(place.slot);
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
    for (ReadCondition& condition : selection.conditions) {
        condition.signal_locked(wake);
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
    if (!_keys.has_index(index_name)) {
        return DDS_RETCODE_BAD_PARAMETER;
    }
    if (!_keys.reserve(_reserved + 1)) {
        return DDS_RETCODE_OUT_OF_RESOURCES;
    }
    SampleSelection& selection = _keys.record(key);
    interrupt_locked(selection, code, wake);
    _keys.drop_if_idle(selection);
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t SampleStore::admit_open_keys_only(const char* index_name, bool open_only) noexcept {
    Lock lock(_mutex);
    if (!_keys.has_index(index_name)) {
        return DDS_RETCODE_BAD_PARAMETER;
    }
    _keys.admit_open_only(open_only);
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t SampleStore::open_key(const char* index_name, std::uint64_t key) noexcept {
    Lock lock(_mutex);
    if (!_keys.has_index(index_name)) {
        return DDS_RETCODE_BAD_PARAMETER;
    }
    return _keys.open(key) ? DDS_RETCODE_OK : DDS_RETCODE_OUT_OF_RESOURCES;
}

DDS_ReturnCode_t SampleStore::close_key(const char* index_name, std::uint64_t key) noexcept {
    bool room_notice = false;
    for (;;) {
        Sample* dropped = nullptr;
        {
            Lock lock(_mutex);
            if (!_keys.has_index(index_name)) {
                return DDS_RETCODE_BAD_PARAMETER;
            }
            if (!_keys.close(key)) {
                return DDS_RETCODE_OUT_OF_RESOURCES;
            }
            SampleSelection* selection = _keys.find(key);
            if (selection != nullptr) {
                selection->interruption.store(DDS_RETCODE_OK, std::memory_order_relaxed);
            }
            if (selection == nullptr || selection->all.empty()) {
                if (selection != nullptr) {
                    _keys.drop_if_idle(*selection);
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
    if (!_keys.has_index(index_name)) {
        log_error("DDSDataReader::create_index_condition", [index_name] {
            return std::string("the reader has no index \"") + (index_name != nullptr ? index_name : "(null)") +
                   "\"; make it with create_index";
        });
        return nullptr;
    }
    if (!_keys.reserve(_reserved + 1)) {
        return nullptr;
    }
    SampleSelection& selection = _keys.record(key);
    ReadCondition* condition = create_condition_locked(sample_states, view_states, instance_states, selection);
    if (condition == nullptr) {
        _keys.drop_if_idle(selection);
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
    condition.selection().conditions.erase(SampleSelection::Conditions::s_iterator_to(condition));
    condition.retire_locked();
    --_conditions;
    if (&condition.selection() != &_whole) {
        _keys.drop_if_idle(condition.selection());
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
        static_cast<void>(delete_condition(*condition));  // refused when another thread has deleted it meanwhile
    }
}

// ---- reading ------------------------------------------------------------------------------------------------------

DDS_ReturnCode_t SampleStore::read_or_take(void*** received_data, int* data_count, DDS_SampleInfoSeq& info_seq,
                                           DDS_Long max_samples, ReadCondition& condition, bool take) noexcept {
    return lend(received_data, data_count, info_seq, [&](Loan*& loan, platform::WakeBatch& wake) {
        return condition.is_live() ? lend_locked(loan, max_samples, condition.selection(), condition.effective_states(), take, wake)
                                   : DDS_RETCODE_ALREADY_DELETED;
    });
}

DDS_ReturnCode_t SampleStore::read_or_take(void*** received_data, int* data_count, DDS_SampleInfoSeq& info_seq,
                                           DDS_Long max_samples, DDS_SampleStateMask states, bool take) noexcept {
    return lend(received_data, data_count, info_seq,
                [&](Loan*& loan, platform::WakeBatch& wake) { return lend_locked(loan, max_samples, _whole, states, take, wake); });
}

DDS_ReturnCode_t SampleStore::read_or_take_key(void*** received_data, int* data_count, DDS_SampleInfoSeq& info_seq,
                                               DDS_Long max_samples, const char* index_name, std::uint64_t key,
                                               bool take) noexcept {
    return lend(received_data, data_count, info_seq, [&](Loan*& loan, platform::WakeBatch& wake) {
        if (!_keys.has_index(index_name)) {
            return DDS_RETCODE_BAD_PARAMETER;
        }
        SampleSelection* const selection = _keys.find(key);
        return selection != nullptr ? lend_locked(loan, max_samples, *selection, DDS_ANY_SAMPLE_STATE, take, wake)
               : _closed            ? DDS_RETCODE_ALREADY_DELETED
                                    : DDS_RETCODE_NO_DATA;
    });
}

template <typename Select>
DDS_ReturnCode_t SampleStore::lend(void*** received_data, int* data_count, DDS_SampleInfoSeq& info_seq, Select select) noexcept {
    Loan* loan = nullptr;
    {
        platform::WakeBatch wake;
        Lock lock(_mutex);
        _seen.store(_received.load(std::memory_order_relaxed), std::memory_order_relaxed);
        const DDS_ReturnCode_t code = select(loan, wake);
        if (code != DDS_RETCODE_OK) {
            return code;
        }
    }
    // Not under the lock: the samples were written by another core, and each is a cache miss. They are pinned, and do not change.
    fill(*loan);
    info_seq.loan_contiguous(loan->infos, loan->count, loan->count);
    *received_data = loan->data;
    *data_count = loan->count;
    return DDS_RETCODE_OK;
}

DDS_ReturnCode_t SampleStore::lend_locked(Loan*& loan, DDS_Long max_samples, SampleSelection& selection, DDS_SampleStateMask states,
                                          bool take, platform::WakeBatch& wake) noexcept {
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
    loan = _loans.take(count);
    if (loan == nullptr) {
        return DDS_RETCODE_OUT_OF_RESOURCES;
    }
    int found = 0;
    const auto lend_slot = [&](SampleSlot& slot) {
        loan->slots[found] = &slot;
        loan->infos[found].sample_state = slot.read ? DDS_READ_SAMPLE_STATE : DDS_NOT_READ_SAMPLE_STATE;
        ++found;
        ++slot.pins;
        if (take) {
            SampleSelection* key = slot.key;
            unlist_locked(slot);
            if (key != nullptr) {
                _keys.drop_if_idle(*key);  // the selection itself only with its last sample, after which it is not looked at
            }
        } else if (!slot.read) {
            mark_read_locked(slot, wake);
        }
    };
    // The next one is found first: lending takes this one out of the list.
    if (wants_read) {
        for (auto next = selection.all.begin(); found < count;) {
            SampleSlot& slot = (next++)->slot;
            if (slot.read || wants_unread) {
                lend_slot(slot);
            }
        }
    } else {
        for (auto next = selection.unread.begin(); found < count;) {
            lend_slot((next++)->slot);
        }
    }
    loan->count = count;
    ++_holders;
    _loans.lend(*loan);
    return DDS_RETCODE_OK;
}

void SampleStore::fill(Loan& loan) noexcept {
    for (int index = 0; index < loan.count; ++index) {
        const SampleSlot& slot = *loan.slots[index];
        const SampleMetadata& metadata = slot.sample->metadata;
        loan.data[index] = slot.sample->data;
        // The state was set under the lock; the other fields are constant, and were set when the loan was made.
        DDS_SampleInfo& info = loan.infos[index];
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
}

void SampleStore::mark_read_locked(SampleSlot& slot, platform::WakeBatch& wake) noexcept {
    slot.read = true;
    for (SampleSelection* selection : {&_whole, slot.key}) {
        if (selection == nullptr) {
            continue;
        }
        selection->note_read(slot);
        for (ReadCondition& condition : selection->conditions) {
            if (condition.effective_states() == DDS_READ_SAMPLE_STATE) {
                condition.signal_locked(wake);
            }
        }
    }
}

void SampleStore::unlist_locked(SampleSlot& slot) noexcept {
    _whole.remove(slot);
    if (slot.key != nullptr) {
        slot.key->remove(slot);
    }
    slot.key = nullptr;
    slot.listed = false;
    --_listed;
}

DDS_ReturnCode_t SampleStore::return_loan(void** received_data, DDS_SampleInfoSeq& info_seq) noexcept {
    // Samples are released after unlocking: that may run the type's own code, and touches memory that other cores use. A small
    // loan's samples wait on the stack, so that its record goes back at once; those of a large one wait in the record.
    void* few[Loan::ROOM];
    void** leaving = few;
    int leaving_count = 0;
    bool room_notice = false;
    bool last_holder = false;
    Loan* kept_back = nullptr;
    {
        Lock lock(_mutex);
        Loan* loan = info_seq.has_ownership() ? nullptr : _loans.recall(received_data, info_seq.get_contiguous_buffer());
        if (loan == nullptr) {
            return DDS_RETCODE_PRECONDITION_NOT_MET;
        }
        info_seq.unloan();
        if (loan->count > Loan::ROOM) {
            kept_back = loan;
            leaving = loan->data;
        }
        for (int index = 0; index < loan->count; ++index) {
            SampleSlot& slot = *loan->slots[index];
            if (--slot.pins == 0 && !slot.listed) {
                leaving[leaving_count++] = free_slot_locked(slot);
            }
        }
        room_notice = claim_room_notice_locked();
        if (kept_back == nullptr) {
            _loans.keep(*loan);
            last_holder = !room_notice && --_holders == 0;
        }
    }
    for (int index = 0; index < leaving_count; ++index) {
        release(*static_cast<Sample*>(leaving[index]));
    }
    if (kept_back != nullptr) {
        Lock lock(_mutex);
        _loans.keep(*kept_back);
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
    SampleSlot& slot = selection.all.front().slot;
    SampleSelection* key = slot.key;
    unlist_locked(slot);
    if (key != nullptr) {
        _keys.drop_if_idle(*key);
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
            if (_whole.all.empty()) {
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
