# Makes the table of what measure.sh has printed. Exits with 1 when a target is missed.

BEGIN {
  FS = "\t"
  file_count["large"] = 8
  file_count["small"] = 20000
  file_count["10^4"] = 10000
  file_count["10^5"] = 100000
  file_count["million"] = 1000000
  file_count["applications"] = 1000  # of one of them: its packages are what is in memory
  file_count["settings"] = 8000
  title["harbix"] = "harbix"
  title["gnutar"] = "GNU tar"
  title["bsdtar"] = "bsdtar"
  title["inspect"] = "inspect"
  title["cat"] = "cat"
  title["rm"] = "rm -rf"
  title["sha256sum"] = "sha256sum"
}

{
  row = $1 FS $2 FS $3
  if (!(row in runs)) rows[++row_count] = row
  ++runs[row]
  seconds[row, runs[row]] = $4
  processor[row, runs[row]] = $5
  if ($6 > peak[row]) peak[row] = $6
}

# Sorts the values of one row in place and returns the one in the middle.
function median(values, row,    count, i, j, value) {
  count = runs[row]
  for (i = 2; i <= count; ++i) {
    value = values[row, i] + 0
    for (j = i - 1; j > 0 && values[row, j] + 0 > value; --j) values[row, j + 1] = values[row, j]
    values[row, j + 1] = value
  }
  if (count % 2) return values[row, (count + 1) / 2]
  return (values[row, count / 2] + values[row, count / 2 + 1]) / 2
}

# Which of the two programs that are measured does this.
function own_program(operation) {
  return operation ~ /^(verify|checksums)/ ? "inspect" : "harbix"
}

function ratio(share, operation, program) {
  return middle[share FS operation FS own_program(operation)] / middle[share FS operation FS program]
}

function target(met, text) {
  printf "  %-7s %s\n", met ? "met" : "MISSED", text
  if (!met) failed = 1
}

function print_table(    i, row, field) {
  printf "%-12s %-11s %-9s %5s %10s %10s %10s %10s %12s %10s\n", "share", "operation", "program", "runs",
         "median s", "fastest s", "slowest s", "cpu s", "ours takes", "peak KiB"
  for (i = 1; i <= row_count; ++i) {
    row = rows[i]
    middle[row] = median(seconds, row)
  }
  for (i = 1; i <= row_count; ++i) {
    row = rows[i]
    split(row, field, FS)
    printf "%-12s %-11s %-9s %5d %10.4f %10.4f %10.4f %10.2f %12s %10d\n", field[1], field[2], title[field[3]],
           runs[row], middle[row], seconds[row, 1], seconds[row, runs[row]], median(processor, row),
           field[3] == own_program(field[2]) ? "" : sprintf("%.3f times", ratio(field[1], field[2], field[3])), peak[row]
  }
}

function judge_time(share, operation, program, limit,    value) {
  if (!(share FS operation FS program in runs)) return
  value = ratio(share, operation, program)
  target(value <= limit, sprintf("%s %s: %.3f times the time of %s (at most %.3f)", operation, share, value,
                                 title[program], limit))
}

# The time for one setting, beyond that of a run without any, has to be the same however many there are. The fastest runs
# are compared: what the work takes, with the least of what disturbs it.
function judge_settings(operation,    counts, count, i, row, start, each, least, most, text) {
  count = split("500,2000,8000", counts, ",")
  start = "settings" FS operation 0 FS "harbix"
  for (i = 1; i <= count; ++i) {
    row = "settings" FS operation counts[i] FS "harbix"
    if (!(row in runs)) return
    each = (seconds[row, 1] - seconds[start, 1]) / counts[i] * 1e6
    text = text sprintf("%s%.0f", i > 1 ? ", " : "", each)
    if (i == 1 || each < least) least = each
    if (i == 1 || each > most) most = each
  }
  target(most <= least * 1.2,
         sprintf("%s of 500, 2000, 8000 settings: %s microseconds each at best, beyond %.1f ms for none (within 20 %%)",
                 operation, text, seconds[start, 1] * 1000))
}

# The time for one file has to be the same however many there are.
function judge_growth(operation,    names, count, i, row, each, least, most, text) {
  count = split("10^4,10^5,million", names, ",")
  for (i = 1; i <= count; ++i) {
    row = names[i] FS operation FS "harbix"
    if (!(row in runs)) return
    each = seconds[row, 1] / file_count[names[i]] * 1e6
    text = text sprintf("%s%.1f", i > 1 ? ", " : "", each)
    if (i == 1 || each < least) least = each
    if (i == 1 || each > most) most = each
  }
  target(most <= least * 1.15,
         sprintf("%s of 10^4, 10^5, 10^6 files: %s microseconds each at best (within 15 %%)", operation, text))
}

# What the library is asked takes SQLite a tenth of a microsecond a row.
function judge_size(share,    row, each) {
  row = share FS "size" FS "harbix"
  if (!(row in runs)) return
  each = middle[row] / file_count[share] * 1e9
  target(each <= 100, sprintf("size query %s: %.1f ms, %.0f ns a row (at most 100)", share, middle[row] * 1000, each))
}

# Peak memory in KiB has to stay below 12 MiB and 120 bytes for each file; harbix-inspect's below 32 MiB, whatever it reads.
function judge_memory(row,    field, limit) {
  split(row, field, FS)
  if (field[3] == "inspect")
    target(peak[row] <= 32 * 1024, sprintf("memory, %s %s: %d KiB (at most %d)", field[2], field[1], peak[row], 32 * 1024))
  if (field[3] != "harbix") return
  limit = 12 * 1024 + 120 * file_count[field[1]] / 1024
  target(peak[row] <= limit, sprintf("memory, %s %s: %d KiB (at most %d)%s", field[2], field[1], peak[row], limit,
         file_count[field[1]] < 1000 ? "" : sprintf("; %d bytes a file above 12 MiB",
         peak[row] > 12288 ? (peak[row] - 12288) * 1024 / file_count[field[1]] : 0)))
}

END {
  print_table()
  print "\nTargets"
  judge_time("large", "cold", "gnutar", 0.95)
  judge_time("small", "cold", "gnutar", 0.5)
  judge_time("large", "backup", "gnutar", 0.85)
  judge_time("small", "backup", "gnutar", 0.85)
  judge_time("large", "restore", "gnutar", 0.8)
  judge_time("small", "restore", "gnutar", 0.85)
  judge_time("applications", "backup", "gnutar", 0.9)
  judge_time("applications", "restore", "gnutar", 0.9)
  judge_time("large", "verify", "bsdtar", 1)
  judge_time("small", "verify", "bsdtar", 1)
  judge_time("million", "verify", "bsdtar", 1)
  judge_time("large", "verify-pipe", "cat", 1.1)
  judge_time("small", "verify-pipe", "cat", 1.1)
  # The archive is the same bytes only where contents are most of it.
  judge_time("large", "checksums", "sha256sum", 1.1)
  judge_settings("backup")
  judge_settings("restore")
  judge_time("small", "wipe", "rm", 1)
  judge_growth("backup")
  judge_growth("restore")
  judge_growth("wipe")
  judge_size("million")
  for (i = 1; i <= row_count; ++i) judge_memory(rows[i])
  exit failed
}
