// A data file: lines of labelled rows (see god.h for the grammar of a line), read twice. The first
// pass finds out how wide the rows are, the second parses them one at a time, so that the text is
// never in memory beside the rows.
//
//   DataFile file("fileTrain", "train.txt");
//   file.Scan();                                      // the widest file of a run decides for all
//   file.StartRows(dim);
//   while ((status = file.Next(row)) == DataFile::kRow) ...
#ifndef SYLVORA_FRONTEND_DATAFILE_H
#define SYLVORA_FRONTEND_DATAFILE_H

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "Libdef.h"

namespace sylvora::frontend {

struct DataRow {
    double label = 0.0;
    std::string queryId;  // empty: none
    VecDle valueV;        // one value per column
    long line = 0;        // where the row stands in the file, from 1
};

// Lines that hold nothing but white space are no rows; the last line needs no line feed.
class DataFile {
  public:
    enum Status { kError = -1, kEnd = 0, kRow = 1 };

    // `parameterName` is the parameter that names the file, for messages.
    DataFile(std::string parameterName, std::string filePath);

    // The first pass. What is no regular file (a pipe) is copied to a temporary one, since it can
    // be read only once. Wrong lines are left to Next. Returns 0, or -1 after a message.
    [[nodiscard]] int Scan();
    // Goes back to the first row; rows have `dim` columns from now on.
    void StartRows(int dim);
    // Reads a row; kError comes after a message.
    [[nodiscard]] Status Next(DataRow& row);

    // Writes "ERROR: ", the place and the complaint, and returns -1; line 0 stands for the file.
    int Refuse(long atLine, const std::string& complaint) const;

    const std::string& Path() const { return path; }
    // What the first pass found.
    long NumRows() const { return numRows; }
    int LargestId() const { return largestId; }  // 0: no row has a feature
    long LineOfLargestId() const { return lineOfLargestId; }

  private:
    struct Closer {
        void operator()(std::FILE* opened) const { std::fclose(opened); }
    };
    typedef std::unique_ptr<std::FILE, Closer> File;
    struct Releaser {
        void operator()(char* allocated) const { std::free(allocated); }
    };

    int OpenText();
    int Spool();
    Status NextLine();
    Status FindRow();

    std::string parameter;
    std::string path;
    File text;
    std::string line;  // the one read last, without its line feed
    long numLine = 0;  // lines read so far
    int dimFea = 0;
    long numRows = 0;
    int largestId = 0;
    long lineOfLargestId = 0;
    std::unique_ptr<char, Releaser> buffer;  // getline's
    size_t sizeBuffer = 0;
};

}  // namespace sylvora::frontend

#endif  // SYLVORA_FRONTEND_DATAFILE_H
