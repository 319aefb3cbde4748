#include <gtest/gtest.h>

#include <limits>

#include "zel/mux/engine/configuration/key_access.h"

namespace {

using namespace Morvalen::Zel;
using zel::mux::config_owner;

TEST(PidAllotment, StreamsStandBehindTheirProgramsNumber) {
  const config_owner config(tsm_config_new());
  tsm_program* program = tsm_add_program(config.get());
  tsm_video* videos[4];
  for (tsm_video*& each : videos) each = tsm_add_video(program);
  tsm_audio* audio = tsm_add_audio(program);
  tsm_data* data = tsm_add_data(program);
  tsm_table* table = tsm_add_table(program);
  tsm_scte35* scte35 = tsm_add_scte35(program);
  EXPECT_EQ(tsm_assign_pids(config.get()), 8);
  EXPECT_EQ(program->pmtPid, 32);
  EXPECT_EQ(videos[0]->pid, 33);
  EXPECT_EQ(videos[2]->pid, 35);
  EXPECT_EQ(videos[3]->pid, 6432);
  EXPECT_EQ(audio->pid, 36);
  EXPECT_EQ(data->pid, 6433);
  EXPECT_EQ(table->pid, 45);
  EXPECT_EQ(scte35->pid, 46);
  EXPECT_EQ(program->pcrPid, 33);
  EXPECT_EQ(tsm_assign_pids(config.get()), 0);
}

TEST(PidAllotment, ProgramsFrom402UpUseTheFreeArea) {
  constexpr int kLargest = std::numeric_limits<int>::max();
  for (const int number : {401, 402, 0, 65535, 199'999'999, kLargest, -kLargest - 1}) {
    const config_owner config(tsm_config_new());
    tsm_program* program = tsm_add_program(config.get());
    program->programNumber = number;
    program->pmtPid = -1;
    tsm_audio* audio = tsm_add_audio(program);
    tsm_assign_pids(config.get());
    EXPECT_EQ(program->pmtPid, number == 401 ? 6416 : 6432) << number;
    EXPECT_EQ(audio->pid, number == 401 ? 6420 : 6433) << number;
    EXPECT_EQ(program->pcrPid, audio->pid);
  }
}

TEST(PidAllotment, AudioBeside482Takes483) {
  const config_owner config(tsm_config_new());
  tsm_program* program = tsm_add_program(config.get());
  tsm_add_audio(program)->pid = 482;
  tsm_audio* second = tsm_add_audio(program);
  tsm_audio* third = tsm_add_audio(program);
  tsm_assign_pids(config.get());
  EXPECT_EQ(second->pid, 483);
  EXPECT_EQ(third->pid, 36);
}

TEST(PidAllotment, A482ThatIsNoAudioChangesNothing) {
  const config_owner config(tsm_config_new());
  tsm_program* program = tsm_add_program(config.get());
  tsm_add_video(program)->pid = 482;
  tsm_audio* audio = tsm_add_audio(program);
  tsm_assign_pids(config.get());
  EXPECT_EQ(audio->pid, 36);
}

TEST(PidAllotment, WhatCannotBeServedKeepsMinusOne) {
  const config_owner config(tsm_config_new());
  // 1,759 PIDs from 6432 to 8190, 64 data streams each.
  tsm_data* last = nullptr;
  for (int i = 0; i < 28; ++i) {
    tsm_program* program = tsm_add_program(config.get());
    while (tsm_data* data = tsm_add_data(program)) last = data;
  }
  EXPECT_EQ(tsm_assign_pids(config.get()), 8190 - 6432 + 1);
  EXPECT_EQ(last->pid, -1);
}

TEST(Adders, DefaultsOfProgramsAndFullSlots) {
  const config_owner config(tsm_config_new());
  tsm_program* first = tsm_add_program(config.get());
  tsm_program* second = tsm_add_program(config.get());
  EXPECT_EQ(first->programNumber, 2);
  EXPECT_EQ(first->pmtPid, 32);
  EXPECT_EQ(second->programNumber, 3);
  EXPECT_EQ(second->pmtPid, 48);
  EXPECT_EQ(second->pcrPer, 90);
  second->identity = 600;
  EXPECT_EQ(tsm_add_program(config.get())->pmtPid, 0);
  for (int i = 0; i < tsm_scte35_slots; ++i) EXPECT_NE(tsm_add_scte35(first), nullptr);
  EXPECT_EQ(tsm_add_scte35(first), nullptr);
  tsm_add_audio(first)->atscBuf = true;
  EXPECT_TRUE(tsm_add_audio(first)->atscBuf);
  EXPECT_FALSE(tsm_add_audio(second)->atscBuf);
}

TEST(TarnArrays, CapacityDoublesFromEight) {
  TarnArray array = {};
  ASSERT_TRUE(tarn_array_reserve(&array, 1, 4));
  EXPECT_EQ(array.capacity, 8);
  ASSERT_TRUE(tarn_array_reserve(&array, 9, 4));
  EXPECT_EQ(array.capacity, 16);
  ASSERT_TRUE(tarn_array_reserve(&array, 100, 4));
  EXPECT_EQ(array.capacity, 100);
  tarn_array_free(&array);
  EXPECT_EQ(array.capacity, 0);
  TarnArray strings = {};
  ASSERT_TRUE(tarn_array_append_text(&strings, "one"));
  EXPECT_EQ(tarn_array_text(&strings, 0), "one");
  EXPECT_TRUE(tarn_array_bytes(&strings, 1).empty());
  EXPECT_TRUE(tarn_array_bytes(&strings, -1).empty());
  tarn_array_free_strings(&strings);
}

}  // namespace
