#pragma once

#include <regex>
#include <sstream>
#include <string>
#include <vector>

// What the board test shows and logs, whether its instruments are the simulated ones of the
// framework (the example board-test) or stand-ins on real lines (bench-test). NAME is the bundle's.

namespace test {

inline const std::string kBoardTestHeader =
    "station,VeltroQLTBundleVersion,runIndex, sn,site,test,subtest,number,expected,value,PF,fail "
    "message,nominal,reply,\n";

/// The lines of one board that passes the flow main.
inline std::string mainLines(const std::string& start, const std::string& volts,
                             const std::string& amps) {
  return start + "Power up,supply voltage,1.1,from 4.900000 to 5.100000," + volts +
         ",P,\"\",5.00 V,(null),\n" +  //
         start + "Idle current,current,2.1,from 0.100000 to 0.600000," + amps + ",P,\"\",\n" +
         start + "Wait for start-up,seconds,3.1,from 0.000000 to 5.000000,0.200000,P,\"\",\n" +
         start + "Firmware,firmware,4.1,2.4.1,1,P,\"\",\n" +  //
         start + "Firmware,bootloader,4.2,1.7,1,P,\"\",\n" +  //
         start +
         "Voltage rails,VBUS,5.1,from 4.750000 to 5.250000,5.012000,P,\"\",5.00 V,5.012 V,\n" +
         start +
         "Voltage rails,3V3,5.2,from 3.135000 to 3.465000,3.318000,P,\"\",3.30 V,3.318 V,\n" +
         start + "Video output,receiver firmware,6.1,DP3.0,1,P,\"\",\n" +  //
         start + "Video output,test pattern,6.2,P,1,P,\"\",\n";
}

/// The lines of the right site's board, which draws too much, in the flow audit.
inline std::string auditLines(const std::string& start) {
  return start +
         "Power up,supply voltage,1.1,from 4.950000 to 5.050000,5.004000,P,\"\",5.00 V,(null),\n" +
         start +
         "Idle current,current,2.1,from 0.100000 to 0.400000,0.447000,F,\"compare with the golden "
         "board\",\n" +
         start +
         "Temperature,soc,3.1,from 20.000000 to 60.000000,41.500000,P,\"\",(null),41.5 C,\n" +
         start +
         "Temperature,edge,3.2,from 20.000000 to 45.000000,run time error,F,\"the console says: "
         "sensor 2 does not answer\",\n" +
         start +
         "Voltage rails,VBUS,4.1,from 4.900000 to 5.100000,5.012000,P,\"\",(null),5.012 V,\n";
}

/// What the station shows of the board QB1 at the site left in the flow main, with times and stamps
/// made equal.
inline std::string mainOutput(const std::string& name) {
  return "Site spare is disabled in the station's configuration.\n"
         "left  PASS  Power up           0.0 s\n"
         "left  PASS  Idle current       0.0 s  (second attempt)\n"
         "left  PASS  Wait for start-up  0.0 s\n"
         "left  PASS  Firmware           0.0 s\n"
         "left  PASS  Voltage rails      0.0 s\n"
         "left  PASS  Video output       0.0 s\n"
         "left  PASS  device QB1 in 0.0 s\n"
         "\n"
         "Site  Serial number  Result      Time   First failure\n"
         "left  QB1            PASS        0.0 s\n"
         "\n"
         "1 passed, 0 failed, 0 broken off\n"
         "Results:     logs/" +
         name + "_STAMP.csv\nDiagnostics: logs/" + name + "_STAMP.log\n";
}

/// Likewise of the board QB2 at the site right in the flow audit.
inline std::string auditOutput(const std::string& name) {
  return "Site spare is disabled in the station's configuration.\n"
         "right  PASS  Power up       0.0 s\n"
         "right  FAIL  Idle current   0.0 s  (second attempt)  current: 0.447, limits 0.1 to "
         "0.4 (compare with the golden board)\n"
         "right  FAIL  Temperature    0.0 s  edge: the console says: sensor 2 does not answer\n"
         "right  PASS  Voltage rails  0.0 s\n"
         "right  FAIL  device QB2 in 0.0 s\n"
         "\n"
         "Site   Serial number  Result      Time   First failure\n"
         "right  QB2            FAIL        0.0 s  Idle current / current: 0.447, limits 0.1 "
         "to 0.4 (compare with the golden board)\n"
         "\n"
         "0 passed, 1 failed, 0 broken off\n"
         "Results:     logs/" +
         name + "_STAMP.csv\nDiagnostics: logs/" + name +
         "_STAMP.log\nTraffic:     logs/traffic, of 1 device that did not pass\n";
}

/// What the table says of two boards that pass.
inline const std::string kBothPassed =
    "Site   Serial number  Result      Time   First failure\n"
    "left   QB1            PASS        0.0 s\n"
    "right  QB2            PASS        0.0 s\n"
    "\n"
    "2 passed, 0 failed, 0 broken off\n";

/// The lines of a result log without station, version and run index: sites that start at the same
/// instant may have the same index.
inline std::vector<std::string> linesWithoutRunIndex(const std::string& results) {
  static const std::regex runIndex("^BT-1,1\\.2\\.0,[12],");
  std::vector<std::string> lines;
  std::istringstream stream(results);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(std::regex_replace(line, runIndex, ""));
  }
  return lines;
}

}  // namespace test
