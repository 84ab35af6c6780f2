module kestrune/oraclego

go 1.19
