package broken

func Whole() {}

func Broken( {
