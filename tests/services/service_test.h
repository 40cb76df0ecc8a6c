// What the service tests share: a real host whose library "T" is a fresh temporary
// directory, data sets written and read back as CSV text, and one service call made
// inside the host's call bracket as the command line makes it.
#ifndef FMSD_TESTS_SERVICES_SERVICE_TEST_H
#define FMSD_TESTS_SERVICES_SERVICE_TEST_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "host/arguments.h"
#include "host/datasets.h"
#include "host/host.h"
#include "host/json.h"
#include "host/lists.h"

namespace fmsd_test {

namespace fs = std::filesystem;
using fmsd::host::Arguments;
using Rows = std::vector<std::vector<std::string>>;
using Column = std::vector<std::string>;

inline std::string slurp(const fs::path& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

inline std::string fixture(const std::string& name) { return slurp(fs::path(FMSD_TEST_DATA) / "services" / name); }

// A data set as text, header first; no cell in these tests holds the separator.
inline Rows parse(const std::string& text, char separator = ',') {
  Rows rows;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    rows.emplace_back();
    std::istringstream cells(line + separator);
    for (std::string cell; std::getline(cells, cell, separator);) rows.back().push_back(cell);
  }
  return rows;
}

inline Column column(const Rows& rows, std::size_t j) {
  Column cells;
  for (std::size_t i = 1; i < rows.size(); ++i) cells.push_back(rows[i].at(j));
  return cells;
}

inline Column column(const Rows& rows, const std::string& name) {
  for (std::size_t j = 0; j < rows.at(0).size(); ++j)
    if (rows[0][j] == name) return column(rows, j);
  return {};
}

class ServiceTest : public ::testing::Test {
 protected:
  // The service at `index` of the module's table, either linked in statically and
  // entered as the host enters it, or loaded from the built module.
  void attach(std::size_t index, bool load) {
    std::string error;
    if (load) {
      module_ = fmsd::host::Module::load(host_, FMSD_TEST_MODULE, error);
      ASSERT_TRUE(module_) << error;
      service_ = module_->registration().services.at(index);
    } else {
      mcn_main(host_.control_block(), host_.process_block());
      fmsd_word status[2] = {}, handle = 0;
      fmsd_word request[2] = {reinterpret_cast<fmsd_word>(status), reinterpret_cast<fmsd_word>(&handle)};
      ASSERT_EQ(qorfmsd(reinterpret_cast<fmsd_word>(&host_), request), 1);
      service_ = host_.registrations().back().services.at(index);
    }
    const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
    dir_ = fs::temp_directory_path() /
           ("fmsd-" + std::to_string(::getpid()) + "-" + test->test_suite_name() + "-" + test->name());
    fs::create_directories(dir_);
    ASSERT_TRUE(host_.datasets().bind_directory("T", dir_.string(), error)) << error;
  }
  void TearDown() override { fs::remove_all(dir_); }

  void write(const std::string& member, const std::string& text) { std::ofstream(dir_ / (member + ".csv")) << text; }
  std::string contents(const std::string& member) { return slurp(dir_ / (member + ".csv")); }
  fmsd_word list(const std::string& json) { return fmsd::host::json_to_list(host_.lists(), json).id(); }

  // The result code (NaN when none was set); every data set is closed afterwards,
  // and with check_pool_ every pool block given back, whatever the outcome.
  double call(Arguments& args) {
    const std::size_t blocks = host_.pool().live_blocks();
    host_.datasets().begin_call();
    {
      fmsd::host::CallContext context(host_, args);
      EXPECT_EQ(service_(context.context(), context.arguments()), 0);
    }
    const double result = args.result().value_or(NAN);
    host_.datasets().finish_call(result >= 0);
    EXPECT_EQ(host_.datasets().open_count(), 0u);
    EXPECT_TRUE(!check_pool_ || host_.pool().live_blocks() == blocks) << host_.pool().live_blocks() << " blocks, not " << blocks;
    return result;
  }

  fmsd::host::Host host_;
  std::unique_ptr<fmsd::host::Module> module_;
  fmsd_service_fn* service_ = nullptr;
  fs::path dir_;
  bool check_pool_ = false;
};

}  // namespace fmsd_test

#endif
