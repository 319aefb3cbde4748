#include "zel/mux/engine/configuration/configuration.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <new>

#include "zel/mux/engine/configuration/program_list.h"

namespace Morvalen::Zel {
namespace {

constexpr int32_t kDefaultReadSize = 5000;
std::atomic<int> readSize = kDefaultReadSize;

template <class Record>
Record* new_record(tsm_record_kind kind) {
  auto* record = new (std::nothrow) Record();
  if (record == nullptr) return nullptr;
  record->kind = kind;
  record->pid = -1;
  return record;
}

// Puts a new record into the first free slot.
template <class Record, size_t slots>
Record* add_record(Record* (&slot)[slots], tsm_record_kind kind) {
  for (Record*& each : slot)
    if (each == nullptr) return each = new_record<Record>(kind);
  return nullptr;
}

void free_common(tsm_stream_record& record) {
  tarn_array_free_strings(&record.comments);
  tarn_array_free_strings(&record.files);
  tarn_array_free_strings(&record.descriptors);
  tarn_array_free_strings(&record.privateDataFile);
}

void free_own(tsm_video& video) {
  tarn_array_free_strings(&video.sccFile);
  tarn_array_free_strings(&video.sccFile12);
  tarn_array_free_strings(&video.sccFile34);
}
void free_own(tsm_table& table) {
  tarn_array_free_strings(&table.tables);
}
void free_own(tsm_smpte302m& record) {
  for (TarnArray& each : record.pairFiles) tarn_array_free_strings(&each);
}
void free_own(tsm_private_stream& record) {
  tarn_array_free_strings(&record.pesPayloadHdr);
}
void free_own(tsm_scte35& record) {
  tarn_array_free(&record.advanceTimes);
}
void free_own(tsm_audio&) {}
void free_own(tsm_data&) {}
void free_own(tsm_lpcm&) {}

template <class Record, size_t slots>
void free_records(Record* (&slot)[slots]) {
  for (Record* each : slot) {
    if (each == nullptr) continue;
    free_own(*each);
    free_common(*each);
    delete each;
  }
}

void free_program(tsm_program* program) {
  free_records(program->video);
  free_records(program->audio);
  free_records(program->data);
  free_records(program->table);
  free_records(program->smpte302m);
  free_records(program->lpcm);
  free_records(program->privateStream);
  free_records(program->scte35);
  tarn_array_free_strings(&program->comments);
  tarn_array_free_strings(&program->descriptors);
  delete program;
}

template <class Owner>
tsm_data* add_data(Owner* owner) {
  tsm_data* data = add_record(owner->data, tsm_kind_data);
  if (data == nullptr) return nullptr;
  data->repeat = true;
  data->fixCc = true;
  return data;
}

template <class Owner>
tsm_table* add_table(Owner* owner) {
  tsm_table* table = add_record(owner->table, tsm_kind_table);
  if (table == nullptr) return nullptr;
  table->repeat = true;
  table->tablesPerSecond = 10.0;
  return table;
}

}  // namespace

tsm_config* tsm_config_new() noexcept {
  auto* config = new (std::nothrow) tsm_config();
  if (config == nullptr) return nullptr;
  config->psiPatRep = 10.0;
  config->psiPmtRep = 10.0;
  config->patTsid = 1;
  config->createPsi = true;
  config->stopOnError = true;
  config->overlap = 15;
  config->pktSize = 188;
  config->autoDescrMask = 255;
  return config;
}

void tsm_config_free(tsm_config* config) noexcept {
  if (config == nullptr) return;
  for (tsm_program* program = config->programs; program != nullptr;) {
    tsm_program* next = program->next;
    free_program(program);
    program = next;
  }
  free_records(config->table);
  free_records(config->data);
  tarn_array_free_strings(&config->comments);
  tarn_array_free_strings(&config->files);
  tarn_array_free_strings(&config->sitTransDescr);
  tarn_array_free_strings(&config->sitSvcDescr);
  delete config;
}

tsm_program* tsm_add_program(tsm_config* config) noexcept {
  int32_t highest = 0;
  tsm_program** link = &config->programs;
  for (; *link != nullptr; link = &(*link)->next) highest = std::max(highest, (*link)->identity);
  return zel::mux::append_program(*link, highest);
}

tsm_video* tsm_add_video(tsm_program* program) noexcept {
  tsm_video* video = add_record(program->video, tsm_kind_video);
  if (video == nullptr) return nullptr;
  video->pesNau = 1;
  video->ptsNpes = 1;
  video->avSync = true;
  return video;
}

tsm_audio* tsm_add_audio(tsm_program* program) noexcept {
  // The first record of the program tells the buffer model of those that follow.
  const auto first = std::find_if(std::begin(program->audio), std::end(program->audio),
                                  [](const tsm_audio* each) { return each != nullptr; });
  const bool atscBuf = first != std::end(program->audio) && (*first)->atscBuf;
  tsm_audio* audio = add_record(program->audio, tsm_kind_audio);
  if (audio == nullptr) return nullptr;
  audio->pesNau = 2;
  audio->ptsNpes = 1;
  audio->avSync = true;
  audio->transitionCleanUp = true;
  audio->atscBuf = atscBuf;
  return audio;
}

tsm_data* tsm_add_data(tsm_program* program) noexcept {
  return add_data(program);
}
tsm_data* tsm_add_data(tsm_config* config) noexcept {
  return add_data(config);
}
tsm_table* tsm_add_table(tsm_program* program) noexcept {
  return add_table(program);
}
tsm_table* tsm_add_table(tsm_config* config) noexcept {
  return add_table(config);
}

tsm_smpte302m* tsm_add_smpte302m(tsm_program* program) noexcept {
  tsm_smpte302m* record = add_record(program->smpte302m, tsm_kind_smpte302m);
  if (record == nullptr) return nullptr;
  record->bytesPerWord = 3;
  record->wordSize = 24;
  record->avSync = true;
  record->dmCoefL[0] = 1.0;
  record->dmCoefR[1] = 1.0;
  return record;
}

tsm_lpcm* tsm_add_lpcm(tsm_program* program) noexcept {
  tsm_lpcm* record = add_record(program->lpcm, tsm_kind_lpcm);
  if (record != nullptr) record->avSync = true;
  return record;
}

tsm_private_stream* tsm_add_private_stream(tsm_program* program) noexcept {
  tsm_private_stream* record = add_record(program->privateStream, tsm_kind_private_stream);
  if (record == nullptr) return nullptr;
  record->timestampRatio = 1.0;
  record->advanceTime = -1;
  record->descFromFile = -1;
  return record;
}

tsm_scte35* tsm_add_scte35(tsm_program* program) noexcept {
  return add_record(program->scte35, tsm_kind_scte35);
}

int tsm_read_size() noexcept {
  return readSize;
}
void tsm_set_read_size(int bytes) noexcept {
  readSize = bytes > 0 ? bytes : kDefaultReadSize;
}

}  // namespace Morvalen::Zel

namespace zel::mux {

Morvalen::Zel::tsm_program* append_program(Morvalen::Zel::tsm_program*& link, int32_t highest) {
  constexpr int32_t kPidCount = 8192;
  auto* program = new (std::nothrow) Morvalen::Zel::tsm_program();
  if (program == nullptr) return nullptr;
  // The first program's values are the rule's for identity 1.
  program->identity = highest + 1;
  program->programNumber = program->identity + 1;
  const int64_t pmtPid = int64_t{program->programNumber} * 16;
  program->pmtPid = pmtPid < kPidCount ? static_cast<int32_t>(pmtPid) : 0;
  program->pcrPer = 90;
  program->pcrPid = -1;
  link = program;
  return program;
}

}  // namespace zel::mux
