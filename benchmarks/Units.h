// The benchmarks of the units, each in the file of its name.
#pragma once

namespace BrimletBench {

void AddBoundsChecked();
void AddDirOperator();
void AddFileOperator();
void AddIniParser();
void AddLogger();
void AddRandomCode();
void AddSplit();
void AddValidators();
void AddVerifyCmds();

}  // namespace BrimletBench
