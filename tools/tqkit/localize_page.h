// The page of `tqkit localize --all --html DIR`: DIR/index.html with, first, each language's
// totals and completeness and the table of every interface and language, then per interface the
// development language's pictures ("before") beside each language's ("after"), what is missing
// with the development language's text beside its key, unused keys and overflowing controls.
//
// A picture that cannot be drawn (a window larger than a picture may be) is left out: the page says
// so in its place and standard error names it once; the rest of the report goes on.
//
// Pictures are encoded and written as they are drawn, and each row's part of the page goes to a
// scratch file, so memory stays flat however many interfaces and languages there are. Nothing is
// in place until commit(): the folder holds the old page or the new one (see OutputFiles).
#pragma once

#include <cstdio>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "localize_bundle.h"
#include "localize_report.h"
#include "output_file.h"

namespace tq::cli::localizing {

// Why a picture was not drawn: its window or view is empty or larger than a picture may be.
std::string undrawnReason();

class Page {
 public:
  explicit Page(std::string folder);
  ~Page();
  Page(const Page&) = delete;
  Page& operator=(const Page&) = delete;

  // Where the development language's pictures of `interface` go, written as they come.
  PictureSink beforePictures(const std::string& interface);
  // Starts the part of an interface: its development file and the pictures drawn of it (or why
  // it could not be drawn).
  void beginInterface(const InterfacePlan& interface, std::vector<std::string> beforeNames, const std::string& error);
  // Where one language's pictures of the interface go.
  PictureSink afterPictures(const std::string& interface, const std::string& localization);
  // The part of one row, after its pictures were drawn.
  void addRow(const Report& report);
  // Writes index.html with the summaries first.
  void finish(const std::string& bundlePath, const BundlePlan& plan, const std::vector<RowSummary>& rows,
              double seconds);
  // Puts the folder in place (after the command's report; see OutputFiles).
  void commit();

 private:
  void writePicture(const std::string& name, const GraphicsContextRef& image);
  void spool(const std::string& text);
  // An <img> of `file`, or the note that it could not be drawn.
  std::string figure(const std::string& file, const char* alt, const std::string& caption) const;

  std::string folder_;
  OutputFiles out_;
  std::FILE* sections_ = nullptr;
  std::string interface_;
  std::vector<std::string> before_;  // the current interface's pictures
  std::size_t rows_ = 0;
  std::set<std::string> undrawn_;  // pictures that could not be drawn, by file name
};

}  // namespace tq::cli::localizing
